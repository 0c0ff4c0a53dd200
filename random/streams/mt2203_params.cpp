// The parameter table of the MT2203 set, one copy for all variants.
#include "random/streams/mt2203_params.h"

namespace tvx::rud {
namespace {
#include "random/streams/mt2203_params.inc"
constexpr int kContiguous = sizeof kMt2203Rows / sizeof kMt2203Rows[0];
static_assert(kContiguous <= kMt2203Members - 1, "rows past the last member");
}  // namespace

const std::uint32_t* mt2203_row(int member) {
  if (member >= 0 && member < kContiguous) return kMt2203Rows[member];
  return member == kMt2203Members - 1 ? kMt2203Last : nullptr;
}

int mt2203_contiguous_rows() {
  return kContiguous;
}

}  // namespace tvx::rud
