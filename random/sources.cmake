# Random-number streams and distributions: the exported frames are compiled once; the catalogue,
# the stream record, the generators and the distributions' variant functions are families
# compiled per instruction-set variant (five copies).
target_sources(tvx_core PRIVATE
  random/streams/exports.cpp
  random/distributions/frame.cpp
  random/streams/probes.cpp
  random/streams/mt2203_params.cpp
)

tvx_add_variant_family(rud_streams
  random/streams/stream.cpp
  random/streams/image.cpp
  random/streams/congruential.cpp
  random/streams/r250.cpp
  random/streams/mrg32k3a.cpp
  random/streams/counter.cpp
  random/streams/nondeterm.cpp
  random/streams/twister.cpp
)

tvx_add_variant_family(rud_distributions
  random/distributions/uniform.cpp
  random/distributions/gaussian.cpp
  random/distributions/continuous.cpp
)
