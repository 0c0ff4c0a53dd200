/* Adds two vectors with vdAdd from plain C and checks the result. */
#include <stdio.h>

#include "tvx_vector.h"

int main(void) {
  enum { N = 1000 };
  static double a[N], b[N], r[N];
  for (int i = 0; i < N; ++i) {
    a[i] = i * 0.5;
    b[i] = 1.0 - i;
  }
  vdAdd(N, a, b, r);
  int bad = 0;
  for (int i = 0; i < N; ++i) {
    if (r[i] != a[i] + b[i]) ++bad;
  }
  /* A bad argument is reported, not a crash: the status word tells what happened. */
  vdAdd(-1, a, b, r);
  int status = kazGetErrStatus();
  printf("vdAdd: %d of %d elements wrong; status after a negative n: %d\n", bad, N, status);
  return (bad == 0 && status == KAZ_STATUS_BADSIZE) ? 0 : 1;
}
