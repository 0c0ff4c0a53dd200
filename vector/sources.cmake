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
tvx_add_variant_family(trig vector/kernels/trig/trig.cpp)
tvx_add_variant_family(invtrig_hyp vector/kernels/invtrig_hyp/invtrig.cpp
                       vector/kernels/invtrig_hyp/hyp.cpp)
tvx_add_variant_family(special vector/kernels/erfgamma/erf.cpp vector/kernels/erfgamma/gamma.cpp
                       vector/kernels/erfgamma/erfinv.cpp)
