// Parameters of the members of the MT2203 set (compiled once, in random/streams/mt2203_params.cpp).
#pragma once

#include <cstdint>

namespace tvx::rud {

// Member numbers of the set: 0 to 6023. The numbering is fixed: a member always has the same row.
inline constexpr int kMt2203Members = 6024;

// Twist word, then the two tempering masks, of member `member`, or null for a member whose
// parameters the search has not reached yet (those between the contiguous rows and member 6023).
const std::uint32_t* mt2203_row(int member);

// Members 0 to mt2203_contiguous_rows() - 1 have rows, and so does member 6023.
int mt2203_contiguous_rows();

}  // namespace tvx::rud
