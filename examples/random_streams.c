/* Draws words and uniforms from an MRG32k3a stream in plain C, splits a second stream off by
 * skip-ahead, and shows the status of a bad call. */
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
      "sequence exactly\n",
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
