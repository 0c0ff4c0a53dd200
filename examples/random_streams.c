/* Draws words and uniforms from an MRG32k3a stream in plain C, splits a second stream off by
 * skip-ahead, rolls dice through the distribution exports, and shows the status of a bad call. */
#include <stdio.h>

#include "tvx_random.h"

int main(void) {
  enum { N = 1000 };
  static unsigned int words[2 * N];
  static double u[N];
  RudStreamPtr stream = NULL, ahead = NULL;
  RudBrngProperties row;
  printf(
      "random_streams: an MRG32k3a stream skipped ahead by %d draws continues another's "
      "sequence exactly, and rolls dice through the distribution exports\n",
      N);
  if (rudNewStream(&stream, RUD_BRNG_MRG32K3A, 12345) != RUD_STATUS_OK ||
      rudNewStream(&ahead, RUD_BRNG_MRG32K3A, 12345) != RUD_STATUS_OK ||
      rudGetBrngProperties(RUD_BRNG_MRG32K3A, &row) != RUD_STATUS_OK) {
    printf("random_streams: FAILED to create the streams\n");
    return 1;
  }
  /* Every generator is reached through its catalogue row. */
  row.iBRng(stream, 2 * N, words);
  rudSkipAheadStream(ahead, N);
  row.dBRng(ahead, N, u, 0.0, 1.0);
  int bad = 0;
  for (int i = 0; i < N; ++i) {
    if (u[i] != 0.0 + words[N + i] * ((1.0 - 0.0) * 0x1.000000d10000bp-32)) ++bad;
  }
  printf("  first word %u, %d of %d skipped uniforms differ\n", words[0], bad, N);
  /* Dice and a uniform price on [90, 110), the accurate form never giving 110 itself. */
  int dice[N], count[7] = {0};
  double price[N];
  if (viRngUniform(RUD_RNG_METHOD_UNIFORM_STD, stream, N, dice, 1, 7) != RUD_STATUS_OK ||
      vdRngUniform(RUD_RNG_METHOD_UNIFORM_STD_ACCURATE, stream, N, price, 90.0, 110.0) !=
          RUD_STATUS_OK) {
    printf("random_streams: FAILED to draw from the distributions\n");
    return 1;
  }
  for (int i = 0; i < N; ++i) {
    if (dice[i] < 1 || dice[i] > 6 || price[i] < 90.0 || price[i] >= 110.0) ++bad;
    ++count[dice[i] >= 1 && dice[i] <= 6 ? dice[i] : 0];
  }
  printf("  %d dice (viRngUniform, faces 1 to 6): %d %d %d %d %d %d of each face\n", N, count[1],
         count[2], count[3], count[4], count[5], count[6]);
  printf(
      "  deliberate bad call next, a uniform with a = b = 1: the ERROR line below names parameter "
      "5\n");
  const int refused = vdRngUniform(RUD_RNG_METHOD_UNIFORM_STD, stream, N, price, 1.0, 1.0);
  printf("  status: %d (RUD_ERROR_BAD_ARGS is %d)\n", refused, RUD_ERROR_BAD_ARGS);
  if (refused != RUD_ERROR_BAD_ARGS) ++bad;
  rudDeleteStream(&ahead);
  rudDeleteStream(&stream);
  /* A second delete finds a null stream: a status and a report line, no crash. */
  printf(
      "  deliberate bad call next, deleting the same stream twice: the ERROR line below is "
      "expected\n");
  int status = rudDeleteStream(&stream);
  printf("  status of the second delete: %d (RUD_ERROR_NULL_PTR is %d)\n", status,
         RUD_ERROR_NULL_PTR);
  const int ok = bad == 0 && status == RUD_ERROR_NULL_PTR;
  printf("random_streams: %s\n", ok ? "OK" : "FAILED");
  return ok ? 0 : 1;
}
