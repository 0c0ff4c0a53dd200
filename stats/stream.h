// The stream-quantile summary a task keeps between compute calls (its private `stream_summary`
// field): one descriptor per variable, each a list of epochs of growing capacity, each epoch a
// level-0 buffer plus levels of compressed lists with rank bounds. Values are kept in double for
// both interfaces, so the layout does not depend on the precision that made it.
#pragma once

#include <cstdint>

namespace tvx::ss {

struct StreamEpoch {
  std::int64_t observation_total;  // observations fed into this epoch
  std::int64_t block_size;         // b: capacity of the level-0 buffer; a list holds b/2 entries
  std::int64_t level_limit;        // L
  std::int64_t top_level;          // highest level used so far
  std::int64_t buffer_fill;        // entries now in the level-0 buffer
  std::int64_t* level_occupied;    // L+1 flags
  double* values;  // L+2 rows of b+1 entries: row 0 the level-0 buffer, rows 1..L the levels,
                   // row L+1 the spare row of merges
  std::int64_t* rank_lower;  // the same shape: least possible rank of each entry
  std::int64_t* rank_upper;  // greatest possible rank of each entry
};

struct StreamDescriptor {
  std::int64_t epoch_count;    // epochs allocated so far
  std::int64_t current_epoch;  // -1 at the start
  std::int64_t selected;       // 1: the variable takes part
  StreamEpoch* epochs;
};

struct StreamSummary {
  std::int64_t variable_count;
  double eps;                     // the accuracy of the first call, kept for the whole stream
  StreamDescriptor variables[1];  // variable_count of them
};

}  // namespace tvx::ss
