// Thread and domain settings, processor topology and the parallel helpers.
#pragma once

extern "C" {

// Domains: -1 the library's overall count, 0 all, 1 BLAS, 2 FFT, 3 vector and random code, 4 QUARTZ.
enum : int {
  TVX_DOMAIN_ALL = 0,
  TVX_DOMAIN_BLAS = 1,
  TVX_DOMAIN_FFT = 2,
  TVX_DOMAIN_KAZ = 3,
  TVX_DOMAIN_QUARTZ = 4,
};

int tvx_domain_max_threads(int domain);
int tvx_get_max_threads(void);
void tvx_set_num_threads(int n);
int tvx_domain_set_num_threads(int n, int domain);
void tvx_set_dynamic(int flag);
int tvx_get_dynamic(void);
void tvx_set_pinned_parallel(int flag);
void tvx_set_num_stripes(int n);
int tvx_get_num_stripes(void);
int tvx_topology_logical(void);
int tvx_topology_numa(void);
int tvx_topology_cores_per_numa(void);
int tvx_topology_hyperthreading(void);

}  // extern "C"
