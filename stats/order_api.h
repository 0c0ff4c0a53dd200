// Sort entry compiled once (outside the variant copies), used by stats/order.h.
#pragma once

#include <cstddef>

namespace tvx::ss {

// Ascending sort of n values without NaN, in place, by the vectorised sort.
void vector_sort(double* x, std::size_t n);
void vector_sort(float* x, std::size_t n);

}  // namespace tvx::ss
