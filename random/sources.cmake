# Random-number streams: the exported frame is compiled once; the catalogue, the stream record and
# the generators are one family compiled per instruction-set variant (five copies).
target_sources(tvx_core PRIVATE
  random/streams/exports.cpp
)

tvx_add_variant_family(rud_streams
  random/streams/stream.cpp
  random/streams/congruential.cpp
  random/streams/r250.cpp
  random/streams/mrg32k3a.cpp
)
