/* Adds two vectors with vdAdd from plain C and checks the result, then shows how a bad argument is
 * reported. */
#include <stdio.h>

#include "tvx_vector.h"

int main(void) {
  enum { N = 1000 };
  static double a[N], b[N], r[N];
  printf("vector_add: vdAdd on two vectors of %d doubles, every element checked\n", N);
  for (int i = 0; i < N; ++i) {
    a[i] = i * 0.5;
    b[i] = 1.0 - i;
  }
  vdAdd(N, a, b, r);
  int bad = 0;
  for (int i = 0; i < N; ++i) {
    if (r[i] != a[i] + b[i]) ++bad;
  }
  printf("  %d of %d elements wrong\n", bad, N);
  /* A bad argument is reported, not a crash: the status word tells what happened. */
  printf("  deliberate bad call next, vdAdd with n = -1: the ERROR line below is expected\n");
  vdAdd(-1, a, b, r);
  int status = kazGetErrStatus();
  printf("  status after the bad call: %d (KAZ_STATUS_BADSIZE is %d)\n", status,
         KAZ_STATUS_BADSIZE);
  const int ok = bad == 0 && status == KAZ_STATUS_BADSIZE;
  printf("vector_add: %s\n", ok ? "OK" : "FAILED");
  return ok ? 0 : 1;
}
