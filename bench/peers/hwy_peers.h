// Highway's Exp and Log as array loops, compiled for AVX2 and for AVX-512 (hwy_peers.cpp).
#pragma once

struct HwyPeers {
  void (*exp_d)(int, const double*, double*);
  void (*exp_s)(int, const float*, float*);
  void (*log_d)(int, const double*, double*);
  void (*log_s)(int, const float*, float*);
};
extern const HwyPeers kHwyAvx2;
extern const HwyPeers kHwyAvx512;
