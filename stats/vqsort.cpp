// The vectorised sort of the statistics engine: a thin wrapper over Highway's vqsort, compiled
// once. The library picks the best instruction set for it at run time on its own; the variant
// copies of the engine call it only for contiguous rows free of NaN (see stats/order.h).
#include <hwy/contrib/sort/vqsort.h>

#include "stats/order_api.h"

namespace tvx::ss {

// A Sorter is cheap to make and must not be shared between threads, so each call has its own.
void vector_sort(double* x, std::size_t n) {
  const hwy::Sorter sorter;
  sorter(x, n, hwy::SortAscending());
}

void vector_sort(float* x, std::size_t n) {
  const hwy::Sorter sorter;
  sorter(x, n, hwy::SortAscending());
}

}  // namespace tvx::ss
