// Ordering helpers of the order-based groups (quantiles, sorted copy, absolute deviation, stream
// summary): the one sort function, the k-th smallest selection and the linear quantile of a
// sorted row. Included by variant files only.
//
// NaN: the sort puts every NaN after all other values (+inf included), the order of the numeric
// values being ascending; the NaNs themselves are moved, not compared. A quantile of a variable
// holding a NaN is NaN, whatever the order.
#pragma once

#include <algorithm>
#include <cmath>
#include <limits>
#include <cstdint>
#include <utility>

#include "simd/variant.h"
#include "stats/order_api.h"

namespace tvx::TVX_VNS::ss {

// Moves the NaNs of x[0, n) to its end; returns how many values are not NaN. The numeric values
// keep no particular order.
template <class T>
std::int64_t nan_to_end(T* x, std::int64_t n) {
  std::int64_t i = 0, j = n;
  for (;;) {
    while (i < j && !std::isnan(x[i])) ++i;
    while (i < j && std::isnan(x[j - 1])) --j;
    if (i >= j) return i;
    std::swap(x[i], x[j - 1]);
  }
}

// Median of lo, lo+1 and hi put at lo+1 (after the middle element was swapped there), with the
// smallest of the three at lo and the largest at hi; then a partition around it. Returns the
// final place j of the pivot and the scan position i past it.
template <class T>
inline void partition3(T* a, std::int64_t lo, std::int64_t hi, std::int64_t* pj, std::int64_t* pi) {
  std::swap(a[(lo + hi) / 2], a[lo + 1]);
  if (a[lo] > a[hi]) std::swap(a[lo], a[hi]);
  if (a[lo + 1] > a[hi]) std::swap(a[lo + 1], a[hi]);
  if (a[lo] > a[lo + 1]) std::swap(a[lo], a[lo + 1]);
  const T pivot = a[lo + 1];
  std::int64_t i = lo + 1, j = hi;
  for (;;) {
    // Strict on both sides: equal keys stop both scans and are swapped, which keeps runs of
    // ties balanced.
    do ++i;
    while (a[i] < pivot);
    do --j;
    while (a[j] > pivot);
    if (j < i) break;
    std::swap(a[i], a[j]);
  }
  a[lo + 1] = a[j];
  a[j] = pivot;
  *pj = j;
  *pi = i;
}

// Ascending in-place quicksort of n values without NaN: explicit stack, the larger part pushed,
// ranges below 8 elements finished by straight insertion.
template <class T>
void quicksort(T* a, std::int64_t n) {
  std::int64_t stack[2 * 64];
  int top = 0;
  std::int64_t lo = 0, hi = n - 1;
  for (;;) {
    if (hi - lo < 7) {
      for (std::int64_t k = lo + 1; k <= hi; ++k) {
        const T v = a[k];
        std::int64_t i = k - 1;
        while (i >= lo && a[i] > v) {
          a[i + 1] = a[i];
          --i;
        }
        a[i + 1] = v;
      }
      if (top == 0) return;
      hi = stack[--top];
      lo = stack[--top];
      continue;
    }
    std::int64_t i, j;
    partition3(a, lo, hi, &j, &i);
    // Left part [lo, j-1], right part [i, hi]; go on with the smaller, so the stack depth stays
    // below log2(n).
    if (hi - i + 1 >= j - lo) {
      stack[top++] = i;
      stack[top++] = hi;
      hi = j - 1;
    } else {
      stack[top++] = lo;
      stack[top++] = j - 1;
      lo = i;
    }
  }
}

// Moves the values equal to `key` in x[0, n) to the front (to_front) or the back; returns where
// the others begin (front) or end (back).
template <class T>
std::int64_t split_off(T* x, std::int64_t n, T key, bool to_front) {
  std::int64_t i = 0, j = n;
  for (;;) {
    while (i < j && (x[i] == key) == to_front) ++i;
    while (i < j && (x[j - 1] == key) != to_front) --j;
    if (i >= j) return i;
    std::swap(x[i], x[j - 1]);
  }
}

// The sort function of the engine: ascending, NaN last. Contiguous rows go to the vectorised
// sort on the AVX2 and AVX-512 copies, to the quicksort elsewhere. The vectorised sort of the
// Highway release we build against turns +inf into the largest finite value, so the infinities
// are put in their places first and only the finite values are handed to it. Returns the count
// of values that are not NaN.
template <class T>
std::int64_t sort_values(T* x, std::int64_t n) {
  const std::int64_t c = nan_to_end(x, n);
  if (c < 2) return c;
  if constexpr (kVariantId >= 3) {
    const T inf = std::numeric_limits<T>::infinity();
    const std::int64_t end = split_off(x, c, inf, false);
    const std::int64_t begin = split_off(x, end, -inf, true);
    if (end - begin > 1) tvx::ss::vector_sort(x + begin, static_cast<std::size_t>(end - begin));
  } else {
    quicksort(x, c);
  }
  return c;
}

// k-th smallest of a[lo, hi] (no NaN), by median-of-three partitions narrowing to the side that
// holds k. Leaves it at k, nothing greater on its left, nothing smaller on its right.
template <class T>
T select_kth(T* a, std::int64_t lo, std::int64_t hi, std::int64_t k) {
  for (;;) {
    if (hi <= lo + 1) {
      if (hi == lo + 1 && a[hi] < a[lo]) std::swap(a[lo], a[hi]);
      return a[k];
    }
    std::int64_t i, j;
    partition3(a, lo, hi, &j, &i);
    if (j >= k) hi = j - 1;
    if (j <= k) lo = i;
  }
}

// k-th smallest values of one buffer (no NaN), asked one after another. Every partition the
// selector makes is remembered as a cut c (nothing left of c above anything right of it), so a
// later order searches only between the two cuts around it. Large ranges are first narrowed by
// branch-free partitions around two pivots taken from a sorted sample, which bracket the k-th
// value with high probability; the median-of-three selection finishes a small range, and takes
// over whenever a sample pass fails to shrink the range by a quarter (many ties, for instance).
template <class T>
class Selector {
 public:
  static constexpr std::int64_t kCutsPerSelect = 160;

  Selector(T* a, std::int64_t n, std::int64_t* cuts, std::int64_t capacity)
      : a_(a), n_(n), cuts_(cuts), capacity_(capacity) {}

  T kth(std::int64_t k) {
    std::int64_t lo = 0, hi = n_;  // search range [lo, hi)
    for (std::int64_t c = 0; c < count_; ++c) {
      const std::int64_t x = cuts_[c];
      if (x <= k && x > lo) lo = x;
      if (x > k && x < hi) hi = x;
    }
    if (hi - lo == 1) return a_[k];
    while (hi - lo > kSmall) {
      const std::int64_t len = hi - lo;
      T sample[kSample];
      for (int j = 0; j < kSample; ++j) sample[j] = a_[lo + (len * j + len / 2) / kSample];
      quicksort(sample, kSample);
      const double at = (static_cast<double>(k - lo) + 0.5) * kSample / static_cast<double>(len);
      const auto r1 = static_cast<int>(std::max(0.0, at - kSpread));
      const auto r2 = static_cast<int>(std::min(kSample - 1.0, at + kSpread));
      // The nearer end first: the second pass then runs over the shorter side.
      const bool low_side = k - lo < hi - k;
      const std::int64_t before = len;
      for (int pass = 0; pass < 2; ++pass) {
        const bool upper = (pass == 0) == low_side;
        if (!upper && r1 == 0) continue;  // no lower pivot below the whole sample
        const T pivot = sample[upper ? r2 : r1];
        const std::int64_t c = partition_below(lo, hi, pivot);
        add_cut(c);
        if (k < c)
          hi = c;
        else
          lo = c;
      }
      if (4 * (hi - lo) > 3 * before) break;
    }
    const T v = select_kth(a_, lo, hi - 1, k);
    add_cut(k);
    add_cut(k + 1);
    return v;
  }

 private:
  static constexpr std::int64_t kSmall = 4096;
  static constexpr int kSample = 1024;
  static constexpr double kSpread = 48;  // 1.5 standard deviations of a sample rank, at worst

  // a[lo, hi) rearranged so that values below the pivot come first; returns their end.
  std::int64_t partition_below(std::int64_t lo, std::int64_t hi, T pivot) {
    std::int64_t i = lo;
    for (std::int64_t j = lo; j < hi; ++j) {
      const T t = a_[j];
      a_[j] = a_[i];
      a_[i] = t;
      i += t < pivot;
    }
    return i;
  }

  void add_cut(std::int64_t c) {
    if (c > 0 && c < n_ && count_ < capacity_) cuts_[count_++] = c;
  }

  T* a_;
  std::int64_t n_;
  std::int64_t* cuts_;
  std::int64_t capacity_, count_ = 0;
};

// Position h = q (n-1) of the linear quantile, split into its integer part and fraction.
inline std::int64_t quantile_index(double q, std::int64_t n, double* frac) {
  const double h = q * static_cast<double>(n - 1);
  const auto k = static_cast<std::int64_t>(h);
  *frac = h - static_cast<double>(k);
  return k;
}

// Linear quantile of order q of n sorted values: lo + (hi - lo) (h - k).
template <class T>
T quantile_of_sorted(const T* s, std::int64_t n, double q) {
  double f;
  const std::int64_t k = quantile_index(q, n, &f);
  const T lo = s[k], hi = k < n - 1 ? s[k + 1] : s[n - 1];
  return lo + (hi - lo) * static_cast<T>(f);
}

}  // namespace tvx::TVX_VNS::ss
