target_sources(tvx_core PRIVATE
  vector/frame/mode_status.cpp
  vector/frame/rows.cpp
  vector/frame/exports.cpp
  vector/frame/threader.cpp
)

# Kernel families compiled once per instruction-set variant.
tvx_add_variant_family(arith_round vector/kernels/arith_round/variant.cpp)
tvx_add_variant_family(exp_log vector/kernels/exp_log/exp.cpp vector/kernels/exp_log/log.cpp)
tvx_add_variant_family(pack vector/kernels/pack/pack.cpp)
tvx_add_variant_family(pow vector/kernels/pow/variant.cpp)
