/* Mean and covariance of three variables, computed block by block: the task points at one
 * block buffer, the accumulated weights carry the state between blocks, and the result after
 * the last block is that of the whole data set, compared here with a one-call computation. */
#include <math.h>
#include <stdio.h>

#include "tvx_stats.h"

enum { P = 3, N = 10000, BLOCK = 1000 };

/* Observation i of variable v: a deterministic, correlated sample. */
static double value(int v, int i) {
  double t = sin(0.37 * i) + 0.25 * cos(1.3 * i * i);
  return 100.0 + (v + 1) * t + (v == 2 ? 0.5 * sin(0.11 * i) : 0.0);
}

int main(void) {
  static double block[P * BLOCK], all[P * N];
  double mean[P], cov[P * (P + 1) / 2], weights[2] = {0.0, 0.0};
  double mean1[P], cov1[P * (P + 1) / 2];
  int p = P, n = BLOCK, storage = RUD_SS_STORAGE_VARIABLES_IN_COLUMNS;
  int cov_storage = RUD_SS_MATRIX_PACKED_ROWS_UPPER;
  const long long estimates = RUD_SS_ESTIMATE_MEAN | RUD_SS_ESTIMATE_COVARIANCE;
  RudSSTaskPtr task = NULL;

  /* One task for all blocks: it keeps pointers, so refilling `block` is all a new block needs. */
  if (ruddSSNewTask(&task, &p, &n, &storage, block, NULL, NULL) != RUD_SS_OK) return 1;
  ruddSSEditCovCor(task, mean, cov, &cov_storage, NULL, NULL);
  ruddSSEditTask(task, RUD_SS_FIELD_ACCUMULATED_WEIGHTS, weights);
  for (int b = 0; b < N / BLOCK; ++b) {
    for (int i = 0; i < BLOCK; ++i)
      for (int v = 0; v < P; ++v) block[i * P + v] = value(v, b * BLOCK + i);
    int status = ruddSSCompute(task, estimates, RUD_SS_METHOD_ONE_PASS);
    if (status != RUD_SS_OK) {
      printf("compute failed: %d\n", status);
      return 1;
    }
  }
  rudSSDeleteTask(&task);

  /* The same in one call over all observations. */
  for (int i = 0; i < N; ++i)
    for (int v = 0; v < P; ++v) all[i * P + v] = value(v, i);
  n = N;
  ruddSSNewTask(&task, &p, &n, &storage, all, NULL, NULL);
  ruddSSEditCovCor(task, mean1, cov1, &cov_storage, NULL, NULL);
  ruddSSCompute(task, estimates, RUD_SS_METHOD_ONE_PASS);
  rudSSDeleteTask(&task);

  double worst = 0.0;
  printf(
      "stats_blocks: mean and covariance of %d observations computed in %d blocks of %d agree "
      "with one call over all of them\n",
      N, N / BLOCK, BLOCK);
  printf("  weight sum carried between blocks: %.0f\n", weights[0]);
  for (int v = 0; v < P; ++v) {
    printf("  mean[%d] = %.12f   one call: %.12f\n", v, mean[v], mean1[v]);
    worst = fmax(worst, fabs(mean[v] - mean1[v]) / fabs(mean1[v]));
  }
  printf("  covariance (upper triangle, packed by rows):\n");
  for (int k = 0; k < P * (P + 1) / 2; ++k) {
    printf("    %.12f   one call: %.12f\n", cov[k], cov1[k]);
    worst = fmax(worst, fabs(cov[k] - cov1[k]) / fabs(cov1[k]));
  }
  printf("  largest relative difference: %.2e\n", worst);
  return worst < 1e-12 ? 0 : 1;
}
