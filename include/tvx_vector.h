/*
 * Tarvex vector mathematics: element-wise functions on arrays of real and complex numbers.
 *
 * Every function exists in four calling forms sharing one implementation:
 *   vdExp(n, a, r)            C form
 *   vmdExp(n, a, r, mode)     mode form: runs with the accuracy and error mode of `mode`
 *   vdexp(&n, a, r)           lower-case form, scalars by pointer (for Fortran-style callers)
 *   vmdexp(&n, a, r, &mode)   lower-case mode form
 *
 * Bad arguments never crash: a negative n or a null array prints
 * "Orvane Tarvex ERROR: Parameter %d was incorrect on entry to %s." and sets the calling
 * thread's status word (KAZ_STATUS_BADSIZE or KAZ_STATUS_BADMEM); n == 0 does nothing.
 * Per-element conditions (domain, singularity, overflow, underflow) go through the thread's
 * error mode: status word, errno, a printed line, the x87 flag and/or the error callback.
 *
 * Pack and unpack move elements between a sparse layout and a dense vector, as bits:
 *   vdPackI(n, a, inca, y)     y[i] = a[i * inca]
 *   vdPackV(n, a, ia, y)       y[i] = a[ia[i]]
 *   vdPackM(n, a, ma, y)       each ma[i] != 0 appends a[i] to y
 *   vdUnpackI(n, a, y, incy)   y[i * incy] = a[i]
 *   vdUnpackV(n, a, y, iy)     y[iy[i]] = a[i]
 *   vdUnpackM(n, a, y, my)     each my[i] != 0 sets y[i] from the next element of a
 * Increments may be 0 or negative; index and mask vectors are int; the later of two equal places
 * wins; unselected places are not written. See docs/vector.md.
 *
 * Thread safety: all functions may be called from any number of threads at once; the mode word,
 * status word and callback are per thread.
 */
#ifndef TVX_VECTOR_H
#define TVX_VECTOR_H

#ifndef TVX_API
#if defined(TVX_BUILDING_LIBRARY)
#define TVX_API __attribute__((visibility("default")))
#else
#define TVX_API
#endif
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Complex element types: real part first, as in C99 _Complex and std::complex. */
typedef struct {
  float real;
  float imag;
} TvxComplex8;
typedef struct {
  double real;
  double imag;
} TvxComplex16;

/* ---- Mode word --------------------------------------------------------------------------- */
#define KAZ_LA 0x00000001u
#define KAZ_HA 0x00000002u
#define KAZ_EP 0x00000003u
#define KAZ_DEFAULT_PRECISION 0x00000000u
#define KAZ_FLOAT_CONSISTENT 0x00000010u
#define KAZ_DOUBLE_CONSISTENT 0x00000020u
#define KAZ_RESTORE 0x00000030u

#define KAZ_ERRMODE_IGNORE 0x00000100u
#define KAZ_ERRMODE_ERRNO 0x00000200u
#define KAZ_ERRMODE_STDERR 0x00000400u
#define KAZ_ERRMODE_EXCEPT 0x00000800u
#define KAZ_ERRMODE_CALLBACK 0x00001000u
#define KAZ_ERRMODE_NOERR 0x00002000u
#define KAZ_ERRMODE_DEFAULT 0x00001A00u

#define KAZ_FLUSH_DENORMALS_ON 0x00280000u
#define KAZ_FLUSH_DENORMALS_OFF 0x00140000u

#define KAZ_TRAP_INVALID 0x01000000u
#define KAZ_TRAP_DIVBYZERO 0x02000000u
#define KAZ_TRAP_OVERFLOW 0x04000000u
#define KAZ_TRAP_UNDERFLOW 0x08000000u

#define KAZ_ACCURACY_MASK 0x0000000Fu
#define KAZ_FPUMODE_MASK 0x000000F0u
#define KAZ_ERRMODE_MASK 0x0000FF00u
#define KAZ_SPARE_MASK 0x00030000u
#define KAZ_FTZDAZ_MASK 0x003C0000u
#define KAZ_TRAP_MASK 0x0F000000u

#define KAZ_DEFAULT_MODE 0x00001A02u

/* ---- Status word ------------------------------------------------------------------------- */
#define KAZ_STATUS_OK 0
#define KAZ_STATUS_BADSIZE (-1)
#define KAZ_STATUS_BADMEM (-2)
#define KAZ_STATUS_ERRDOM 1
#define KAZ_STATUS_SING 2
#define KAZ_STATUS_OVERFLOW 3
#define KAZ_STATUS_UNDERFLOW 4
#define KAZ_STATUS_EP_ONLY_WARNING 1000

/* ---- Error callback ---------------------------------------------------------------------- */
/* One record per reported element. `index` counts in the caller's whole vector. The callback
 * may rewrite r1 (and r2) and return 0 to have the new value stored; a non-zero return keeps
 * the kernel's result and skips the default action. Real functions leave the *_im fields 0. */
typedef struct kaz_error_record {
  int code;
  int index;
  double a1;
  double a2;
  double r1;
  double r2;
  char name[64];
  int name_len;
  double a1_im;
  double a2_im;
  double r1_im;
  double r2_im;
} kaz_error_record;

typedef int (*KazErrorCallBack)(kaz_error_record* record);

/* ---- Mode, status and callback of the calling thread ------------------------------------ */
/* Merges the non-zero fields of `mode` into the thread's mode word; returns the previous word.
 * A zero field leaves that field unchanged, so no call can clear a field. */
TVX_API unsigned int kazSetMode(unsigned int mode);
TVX_API unsigned int kazsetmode(const unsigned int* mode);
/* The thread's mode word; the first call on a thread reads TVX_KAZ_MODE (default 0x1A02). */
TVX_API unsigned int kazGetMode(void);
TVX_API unsigned int kazgetmode(void);
TVX_API int kazSetErrStatus(int status);
TVX_API int kazseterrstatus(const int* status);
TVX_API int kazGetErrStatus(void);
TVX_API int kazgeterrstatus(void);
TVX_API int kazClearErrStatus(void);
TVX_API int kazclearerrstatus(void);
TVX_API KazErrorCallBack kazSetErrorCallBack(KazErrorCallBack callback);
TVX_API KazErrorCallBack kazseterrorcallback(KazErrorCallBack callback);
TVX_API KazErrorCallBack kazGetErrorCallBack(void);
TVX_API KazErrorCallBack kazgeterrorcallback(void);
TVX_API KazErrorCallBack kazClearErrorCallBack(void);
TVX_API KazErrorCallBack kazclearerrorcallback(void);

/* ---- Vector functions -------------------------------------------------------------------- */
/* The block below is generated from vector/frame/functions.def by tools/gen_vector_header.py;
 * a test fails when it is out of date. Do not edit it by hand. */
/* clang-format off */
/* BEGIN GENERATED VECTOR DECLARATIONS */
TVX_API void vdAdd(int n, const double* a, const double* b, double* r);
TVX_API void vmdAdd(int n, const double* a, const double* b, double* r, unsigned int mode);
TVX_API void vdadd(const int* n, const double* a, const double* b, double* r);
TVX_API void vmdadd(const int* n, const double* a, const double* b, double* r, const unsigned int* mode);
TVX_API void vsAdd(int n, const float* a, const float* b, float* r);
TVX_API void vmsAdd(int n, const float* a, const float* b, float* r, unsigned int mode);
TVX_API void vsadd(const int* n, const float* a, const float* b, float* r);
TVX_API void vmsadd(const int* n, const float* a, const float* b, float* r, const unsigned int* mode);
TVX_API void vdSub(int n, const double* a, const double* b, double* r);
TVX_API void vmdSub(int n, const double* a, const double* b, double* r, unsigned int mode);
TVX_API void vdsub(const int* n, const double* a, const double* b, double* r);
TVX_API void vmdsub(const int* n, const double* a, const double* b, double* r, const unsigned int* mode);
TVX_API void vsSub(int n, const float* a, const float* b, float* r);
TVX_API void vmsSub(int n, const float* a, const float* b, float* r, unsigned int mode);
TVX_API void vssub(const int* n, const float* a, const float* b, float* r);
TVX_API void vmssub(const int* n, const float* a, const float* b, float* r, const unsigned int* mode);
TVX_API void vdMul(int n, const double* a, const double* b, double* r);
TVX_API void vmdMul(int n, const double* a, const double* b, double* r, unsigned int mode);
TVX_API void vdmul(const int* n, const double* a, const double* b, double* r);
TVX_API void vmdmul(const int* n, const double* a, const double* b, double* r, const unsigned int* mode);
TVX_API void vsMul(int n, const float* a, const float* b, float* r);
TVX_API void vmsMul(int n, const float* a, const float* b, float* r, unsigned int mode);
TVX_API void vsmul(const int* n, const float* a, const float* b, float* r);
TVX_API void vmsmul(const int* n, const float* a, const float* b, float* r, const unsigned int* mode);
TVX_API void vdSqr(int n, const double* a, double* r);
TVX_API void vmdSqr(int n, const double* a, double* r, unsigned int mode);
TVX_API void vdsqr(const int* n, const double* a, double* r);
TVX_API void vmdsqr(const int* n, const double* a, double* r, const unsigned int* mode);
TVX_API void vsSqr(int n, const float* a, float* r);
TVX_API void vmsSqr(int n, const float* a, float* r, unsigned int mode);
TVX_API void vssqr(const int* n, const float* a, float* r);
TVX_API void vmssqr(const int* n, const float* a, float* r, const unsigned int* mode);
TVX_API void vdAbs(int n, const double* a, double* r);
TVX_API void vmdAbs(int n, const double* a, double* r, unsigned int mode);
TVX_API void vdabs(const int* n, const double* a, double* r);
TVX_API void vmdabs(const int* n, const double* a, double* r, const unsigned int* mode);
TVX_API void vsAbs(int n, const float* a, float* r);
TVX_API void vmsAbs(int n, const float* a, float* r, unsigned int mode);
TVX_API void vsabs(const int* n, const float* a, float* r);
TVX_API void vmsabs(const int* n, const float* a, float* r, const unsigned int* mode);
TVX_API void vdInv(int n, const double* a, double* r);
TVX_API void vmdInv(int n, const double* a, double* r, unsigned int mode);
TVX_API void vdinv(const int* n, const double* a, double* r);
TVX_API void vmdinv(const int* n, const double* a, double* r, const unsigned int* mode);
TVX_API void vsInv(int n, const float* a, float* r);
TVX_API void vmsInv(int n, const float* a, float* r, unsigned int mode);
TVX_API void vsinv(const int* n, const float* a, float* r);
TVX_API void vmsinv(const int* n, const float* a, float* r, const unsigned int* mode);
TVX_API void vdDiv(int n, const double* a, const double* b, double* r);
TVX_API void vmdDiv(int n, const double* a, const double* b, double* r, unsigned int mode);
TVX_API void vddiv(const int* n, const double* a, const double* b, double* r);
TVX_API void vmddiv(const int* n, const double* a, const double* b, double* r, const unsigned int* mode);
TVX_API void vsDiv(int n, const float* a, const float* b, float* r);
TVX_API void vmsDiv(int n, const float* a, const float* b, float* r, unsigned int mode);
TVX_API void vsdiv(const int* n, const float* a, const float* b, float* r);
TVX_API void vmsdiv(const int* n, const float* a, const float* b, float* r, const unsigned int* mode);
TVX_API void vdLinearFrac(int n, const double* a, const double* b, double scalea, double shifta, double scaleb, double shiftb, double* r);
TVX_API void vmdLinearFrac(int n, const double* a, const double* b, double scalea, double shifta, double scaleb, double shiftb, double* r, unsigned int mode);
TVX_API void vdlinearfrac(const int* n, const double* a, const double* b, const double* scalea, const double* shifta, const double* scaleb, const double* shiftb, double* r);
TVX_API void vmdlinearfrac(const int* n, const double* a, const double* b, const double* scalea, const double* shifta, const double* scaleb, const double* shiftb, double* r, const unsigned int* mode);
TVX_API void vsLinearFrac(int n, const float* a, const float* b, float scalea, float shifta, float scaleb, float shiftb, float* r);
TVX_API void vmsLinearFrac(int n, const float* a, const float* b, float scalea, float shifta, float scaleb, float shiftb, float* r, unsigned int mode);
TVX_API void vslinearfrac(const int* n, const float* a, const float* b, const float* scalea, const float* shifta, const float* scaleb, const float* shiftb, float* r);
TVX_API void vmslinearfrac(const int* n, const float* a, const float* b, const float* scalea, const float* shifta, const float* scaleb, const float* shiftb, float* r, const unsigned int* mode);
TVX_API void vdModf(int n, const double* a, double* r1, double* r2);
TVX_API void vmdModf(int n, const double* a, double* r1, double* r2, unsigned int mode);
TVX_API void vdmodf(const int* n, const double* a, double* r1, double* r2);
TVX_API void vmdmodf(const int* n, const double* a, double* r1, double* r2, const unsigned int* mode);
TVX_API void vsModf(int n, const float* a, float* r1, float* r2);
TVX_API void vmsModf(int n, const float* a, float* r1, float* r2, unsigned int mode);
TVX_API void vsmodf(const int* n, const float* a, float* r1, float* r2);
TVX_API void vmsmodf(const int* n, const float* a, float* r1, float* r2, const unsigned int* mode);
TVX_API void vdFloor(int n, const double* a, double* r);
TVX_API void vmdFloor(int n, const double* a, double* r, unsigned int mode);
TVX_API void vdfloor(const int* n, const double* a, double* r);
TVX_API void vmdfloor(const int* n, const double* a, double* r, const unsigned int* mode);
TVX_API void vsFloor(int n, const float* a, float* r);
TVX_API void vmsFloor(int n, const float* a, float* r, unsigned int mode);
TVX_API void vsfloor(const int* n, const float* a, float* r);
TVX_API void vmsfloor(const int* n, const float* a, float* r, const unsigned int* mode);
TVX_API void vdCeil(int n, const double* a, double* r);
TVX_API void vmdCeil(int n, const double* a, double* r, unsigned int mode);
TVX_API void vdceil(const int* n, const double* a, double* r);
TVX_API void vmdceil(const int* n, const double* a, double* r, const unsigned int* mode);
TVX_API void vsCeil(int n, const float* a, float* r);
TVX_API void vmsCeil(int n, const float* a, float* r, unsigned int mode);
TVX_API void vsceil(const int* n, const float* a, float* r);
TVX_API void vmsceil(const int* n, const float* a, float* r, const unsigned int* mode);
TVX_API void vdTrunc(int n, const double* a, double* r);
TVX_API void vmdTrunc(int n, const double* a, double* r, unsigned int mode);
TVX_API void vdtrunc(const int* n, const double* a, double* r);
TVX_API void vmdtrunc(const int* n, const double* a, double* r, const unsigned int* mode);
TVX_API void vsTrunc(int n, const float* a, float* r);
TVX_API void vmsTrunc(int n, const float* a, float* r, unsigned int mode);
TVX_API void vstrunc(const int* n, const float* a, float* r);
TVX_API void vmstrunc(const int* n, const float* a, float* r, const unsigned int* mode);
TVX_API void vdRound(int n, const double* a, double* r);
TVX_API void vmdRound(int n, const double* a, double* r, unsigned int mode);
TVX_API void vdround(const int* n, const double* a, double* r);
TVX_API void vmdround(const int* n, const double* a, double* r, const unsigned int* mode);
TVX_API void vsRound(int n, const float* a, float* r);
TVX_API void vmsRound(int n, const float* a, float* r, unsigned int mode);
TVX_API void vsround(const int* n, const float* a, float* r);
TVX_API void vmsround(const int* n, const float* a, float* r, const unsigned int* mode);
TVX_API void vdRint(int n, const double* a, double* r);
TVX_API void vmdRint(int n, const double* a, double* r, unsigned int mode);
TVX_API void vdrint(const int* n, const double* a, double* r);
TVX_API void vmdrint(const int* n, const double* a, double* r, const unsigned int* mode);
TVX_API void vsRint(int n, const float* a, float* r);
TVX_API void vmsRint(int n, const float* a, float* r, unsigned int mode);
TVX_API void vsrint(const int* n, const float* a, float* r);
TVX_API void vmsrint(const int* n, const float* a, float* r, const unsigned int* mode);
TVX_API void vdNearbyInt(int n, const double* a, double* r);
TVX_API void vmdNearbyInt(int n, const double* a, double* r, unsigned int mode);
TVX_API void vdnearbyint(const int* n, const double* a, double* r);
TVX_API void vmdnearbyint(const int* n, const double* a, double* r, const unsigned int* mode);
TVX_API void vsNearbyInt(int n, const float* a, float* r);
TVX_API void vmsNearbyInt(int n, const float* a, float* r, unsigned int mode);
TVX_API void vsnearbyint(const int* n, const float* a, float* r);
TVX_API void vmsnearbyint(const int* n, const float* a, float* r, const unsigned int* mode);
TVX_API void vdExp(int n, const double* a, double* r);
TVX_API void vmdExp(int n, const double* a, double* r, unsigned int mode);
TVX_API void vdexp(const int* n, const double* a, double* r);
TVX_API void vmdexp(const int* n, const double* a, double* r, const unsigned int* mode);
TVX_API void vsExp(int n, const float* a, float* r);
TVX_API void vmsExp(int n, const float* a, float* r, unsigned int mode);
TVX_API void vsexp(const int* n, const float* a, float* r);
TVX_API void vmsexp(const int* n, const float* a, float* r, const unsigned int* mode);
TVX_API void vdExpm1(int n, const double* a, double* r);
TVX_API void vmdExpm1(int n, const double* a, double* r, unsigned int mode);
TVX_API void vdexpm1(const int* n, const double* a, double* r);
TVX_API void vmdexpm1(const int* n, const double* a, double* r, const unsigned int* mode);
TVX_API void vsExpm1(int n, const float* a, float* r);
TVX_API void vmsExpm1(int n, const float* a, float* r, unsigned int mode);
TVX_API void vsexpm1(const int* n, const float* a, float* r);
TVX_API void vmsexpm1(const int* n, const float* a, float* r, const unsigned int* mode);
TVX_API void vdLn(int n, const double* a, double* r);
TVX_API void vmdLn(int n, const double* a, double* r, unsigned int mode);
TVX_API void vdln(const int* n, const double* a, double* r);
TVX_API void vmdln(const int* n, const double* a, double* r, const unsigned int* mode);
TVX_API void vsLn(int n, const float* a, float* r);
TVX_API void vmsLn(int n, const float* a, float* r, unsigned int mode);
TVX_API void vsln(const int* n, const float* a, float* r);
TVX_API void vmsln(const int* n, const float* a, float* r, const unsigned int* mode);
TVX_API void vdLog10(int n, const double* a, double* r);
TVX_API void vmdLog10(int n, const double* a, double* r, unsigned int mode);
TVX_API void vdlog10(const int* n, const double* a, double* r);
TVX_API void vmdlog10(const int* n, const double* a, double* r, const unsigned int* mode);
TVX_API void vsLog10(int n, const float* a, float* r);
TVX_API void vmsLog10(int n, const float* a, float* r, unsigned int mode);
TVX_API void vslog10(const int* n, const float* a, float* r);
TVX_API void vmslog10(const int* n, const float* a, float* r, const unsigned int* mode);
TVX_API void vdLog1p(int n, const double* a, double* r);
TVX_API void vmdLog1p(int n, const double* a, double* r, unsigned int mode);
TVX_API void vdlog1p(const int* n, const double* a, double* r);
TVX_API void vmdlog1p(const int* n, const double* a, double* r, const unsigned int* mode);
TVX_API void vsLog1p(int n, const float* a, float* r);
TVX_API void vmsLog1p(int n, const float* a, float* r, unsigned int mode);
TVX_API void vslog1p(const int* n, const float* a, float* r);
TVX_API void vmslog1p(const int* n, const float* a, float* r, const unsigned int* mode);
TVX_API void vdPow(int n, const double* a, const double* b, double* r);
TVX_API void vmdPow(int n, const double* a, const double* b, double* r, unsigned int mode);
TVX_API void vdpow(const int* n, const double* a, const double* b, double* r);
TVX_API void vmdpow(const int* n, const double* a, const double* b, double* r, const unsigned int* mode);
TVX_API void vsPow(int n, const float* a, const float* b, float* r);
TVX_API void vmsPow(int n, const float* a, const float* b, float* r, unsigned int mode);
TVX_API void vspow(const int* n, const float* a, const float* b, float* r);
TVX_API void vmspow(const int* n, const float* a, const float* b, float* r, const unsigned int* mode);
TVX_API void vdPowx(int n, const double* a, double b, double* r);
TVX_API void vmdPowx(int n, const double* a, double b, double* r, unsigned int mode);
TVX_API void vdpowx(const int* n, const double* a, const double* b, double* r);
TVX_API void vmdpowx(const int* n, const double* a, const double* b, double* r, const unsigned int* mode);
TVX_API void vsPowx(int n, const float* a, float b, float* r);
TVX_API void vmsPowx(int n, const float* a, float b, float* r, unsigned int mode);
TVX_API void vspowx(const int* n, const float* a, const float* b, float* r);
TVX_API void vmspowx(const int* n, const float* a, const float* b, float* r, const unsigned int* mode);
TVX_API void vdPow2o3(int n, const double* a, double* r);
TVX_API void vmdPow2o3(int n, const double* a, double* r, unsigned int mode);
TVX_API void vdpow2o3(const int* n, const double* a, double* r);
TVX_API void vmdpow2o3(const int* n, const double* a, double* r, const unsigned int* mode);
TVX_API void vsPow2o3(int n, const float* a, float* r);
TVX_API void vmsPow2o3(int n, const float* a, float* r, unsigned int mode);
TVX_API void vspow2o3(const int* n, const float* a, float* r);
TVX_API void vmspow2o3(const int* n, const float* a, float* r, const unsigned int* mode);
TVX_API void vdCbrt(int n, const double* a, double* r);
TVX_API void vmdCbrt(int n, const double* a, double* r, unsigned int mode);
TVX_API void vdcbrt(const int* n, const double* a, double* r);
TVX_API void vmdcbrt(const int* n, const double* a, double* r, const unsigned int* mode);
TVX_API void vsCbrt(int n, const float* a, float* r);
TVX_API void vmsCbrt(int n, const float* a, float* r, unsigned int mode);
TVX_API void vscbrt(const int* n, const float* a, float* r);
TVX_API void vmscbrt(const int* n, const float* a, float* r, const unsigned int* mode);
TVX_API void vdInvCbrt(int n, const double* a, double* r);
TVX_API void vmdInvCbrt(int n, const double* a, double* r, unsigned int mode);
TVX_API void vdinvcbrt(const int* n, const double* a, double* r);
TVX_API void vmdinvcbrt(const int* n, const double* a, double* r, const unsigned int* mode);
TVX_API void vsInvCbrt(int n, const float* a, float* r);
TVX_API void vmsInvCbrt(int n, const float* a, float* r, unsigned int mode);
TVX_API void vsinvcbrt(const int* n, const float* a, float* r);
TVX_API void vmsinvcbrt(const int* n, const float* a, float* r, const unsigned int* mode);
TVX_API void vdPow3o2(int n, const double* a, double* r);
TVX_API void vmdPow3o2(int n, const double* a, double* r, unsigned int mode);
TVX_API void vdpow3o2(const int* n, const double* a, double* r);
TVX_API void vmdpow3o2(const int* n, const double* a, double* r, const unsigned int* mode);
TVX_API void vsPow3o2(int n, const float* a, float* r);
TVX_API void vmsPow3o2(int n, const float* a, float* r, unsigned int mode);
TVX_API void vspow3o2(const int* n, const float* a, float* r);
TVX_API void vmspow3o2(const int* n, const float* a, float* r, const unsigned int* mode);
TVX_API void vdSqrt(int n, const double* a, double* r);
TVX_API void vmdSqrt(int n, const double* a, double* r, unsigned int mode);
TVX_API void vdsqrt(const int* n, const double* a, double* r);
TVX_API void vmdsqrt(const int* n, const double* a, double* r, const unsigned int* mode);
TVX_API void vsSqrt(int n, const float* a, float* r);
TVX_API void vmsSqrt(int n, const float* a, float* r, unsigned int mode);
TVX_API void vssqrt(const int* n, const float* a, float* r);
TVX_API void vmssqrt(const int* n, const float* a, float* r, const unsigned int* mode);
TVX_API void vdInvSqrt(int n, const double* a, double* r);
TVX_API void vmdInvSqrt(int n, const double* a, double* r, unsigned int mode);
TVX_API void vdinvsqrt(const int* n, const double* a, double* r);
TVX_API void vmdinvsqrt(const int* n, const double* a, double* r, const unsigned int* mode);
TVX_API void vsInvSqrt(int n, const float* a, float* r);
TVX_API void vmsInvSqrt(int n, const float* a, float* r, unsigned int mode);
TVX_API void vsinvsqrt(const int* n, const float* a, float* r);
TVX_API void vmsinvsqrt(const int* n, const float* a, float* r, const unsigned int* mode);
TVX_API void vdHypot(int n, const double* a, const double* b, double* r);
TVX_API void vmdHypot(int n, const double* a, const double* b, double* r, unsigned int mode);
TVX_API void vdhypot(const int* n, const double* a, const double* b, double* r);
TVX_API void vmdhypot(const int* n, const double* a, const double* b, double* r, const unsigned int* mode);
TVX_API void vsHypot(int n, const float* a, const float* b, float* r);
TVX_API void vmsHypot(int n, const float* a, const float* b, float* r, unsigned int mode);
TVX_API void vshypot(const int* n, const float* a, const float* b, float* r);
TVX_API void vmshypot(const int* n, const float* a, const float* b, float* r, const unsigned int* mode);
TVX_API void vsPackI(int n, const float* a, int inca, float* y);
TVX_API void vmsPackI(int n, const float* a, int inca, float* y, unsigned int mode);
TVX_API void vspacki(const int* n, const float* a, const int* inca, float* y);
TVX_API void vmspacki(const int* n, const float* a, const int* inca, float* y, const unsigned int* mode);
TVX_API void vsPackV(int n, const float* a, const int* ia, float* y);
TVX_API void vmsPackV(int n, const float* a, const int* ia, float* y, unsigned int mode);
TVX_API void vspackv(const int* n, const float* a, const int* ia, float* y);
TVX_API void vmspackv(const int* n, const float* a, const int* ia, float* y, const unsigned int* mode);
TVX_API void vsPackM(int n, const float* a, const int* ma, float* y);
TVX_API void vmsPackM(int n, const float* a, const int* ma, float* y, unsigned int mode);
TVX_API void vspackm(const int* n, const float* a, const int* ma, float* y);
TVX_API void vmspackm(const int* n, const float* a, const int* ma, float* y, const unsigned int* mode);
TVX_API void vsUnpackI(int n, const float* a, float* y, int incy);
TVX_API void vmsUnpackI(int n, const float* a, float* y, int incy, unsigned int mode);
TVX_API void vsunpacki(const int* n, const float* a, float* y, const int* incy);
TVX_API void vmsunpacki(const int* n, const float* a, float* y, const int* incy, const unsigned int* mode);
TVX_API void vsUnpackV(int n, const float* a, float* y, const int* iy);
TVX_API void vmsUnpackV(int n, const float* a, float* y, const int* iy, unsigned int mode);
TVX_API void vsunpackv(const int* n, const float* a, float* y, const int* iy);
TVX_API void vmsunpackv(const int* n, const float* a, float* y, const int* iy, const unsigned int* mode);
TVX_API void vsUnpackM(int n, const float* a, float* y, const int* my);
TVX_API void vmsUnpackM(int n, const float* a, float* y, const int* my, unsigned int mode);
TVX_API void vsunpackm(const int* n, const float* a, float* y, const int* my);
TVX_API void vmsunpackm(const int* n, const float* a, float* y, const int* my, const unsigned int* mode);
TVX_API void vdPackI(int n, const double* a, int inca, double* y);
TVX_API void vmdPackI(int n, const double* a, int inca, double* y, unsigned int mode);
TVX_API void vdpacki(const int* n, const double* a, const int* inca, double* y);
TVX_API void vmdpacki(const int* n, const double* a, const int* inca, double* y, const unsigned int* mode);
TVX_API void vdPackV(int n, const double* a, const int* ia, double* y);
TVX_API void vmdPackV(int n, const double* a, const int* ia, double* y, unsigned int mode);
TVX_API void vdpackv(const int* n, const double* a, const int* ia, double* y);
TVX_API void vmdpackv(const int* n, const double* a, const int* ia, double* y, const unsigned int* mode);
TVX_API void vdPackM(int n, const double* a, const int* ma, double* y);
TVX_API void vmdPackM(int n, const double* a, const int* ma, double* y, unsigned int mode);
TVX_API void vdpackm(const int* n, const double* a, const int* ma, double* y);
TVX_API void vmdpackm(const int* n, const double* a, const int* ma, double* y, const unsigned int* mode);
TVX_API void vdUnpackI(int n, const double* a, double* y, int incy);
TVX_API void vmdUnpackI(int n, const double* a, double* y, int incy, unsigned int mode);
TVX_API void vdunpacki(const int* n, const double* a, double* y, const int* incy);
TVX_API void vmdunpacki(const int* n, const double* a, double* y, const int* incy, const unsigned int* mode);
TVX_API void vdUnpackV(int n, const double* a, double* y, const int* iy);
TVX_API void vmdUnpackV(int n, const double* a, double* y, const int* iy, unsigned int mode);
TVX_API void vdunpackv(const int* n, const double* a, double* y, const int* iy);
TVX_API void vmdunpackv(const int* n, const double* a, double* y, const int* iy, const unsigned int* mode);
TVX_API void vdUnpackM(int n, const double* a, double* y, const int* my);
TVX_API void vmdUnpackM(int n, const double* a, double* y, const int* my, unsigned int mode);
TVX_API void vdunpackm(const int* n, const double* a, double* y, const int* my);
TVX_API void vmdunpackm(const int* n, const double* a, double* y, const int* my, const unsigned int* mode);
TVX_API void vcPackI(int n, const TvxComplex8* a, int inca, TvxComplex8* y);
TVX_API void vmcPackI(int n, const TvxComplex8* a, int inca, TvxComplex8* y, unsigned int mode);
TVX_API void vcpacki(const int* n, const TvxComplex8* a, const int* inca, TvxComplex8* y);
TVX_API void vmcpacki(const int* n, const TvxComplex8* a, const int* inca, TvxComplex8* y, const unsigned int* mode);
TVX_API void vcPackV(int n, const TvxComplex8* a, const int* ia, TvxComplex8* y);
TVX_API void vmcPackV(int n, const TvxComplex8* a, const int* ia, TvxComplex8* y, unsigned int mode);
TVX_API void vcpackv(const int* n, const TvxComplex8* a, const int* ia, TvxComplex8* y);
TVX_API void vmcpackv(const int* n, const TvxComplex8* a, const int* ia, TvxComplex8* y, const unsigned int* mode);
TVX_API void vcPackM(int n, const TvxComplex8* a, const int* ma, TvxComplex8* y);
TVX_API void vmcPackM(int n, const TvxComplex8* a, const int* ma, TvxComplex8* y, unsigned int mode);
TVX_API void vcpackm(const int* n, const TvxComplex8* a, const int* ma, TvxComplex8* y);
TVX_API void vmcpackm(const int* n, const TvxComplex8* a, const int* ma, TvxComplex8* y, const unsigned int* mode);
TVX_API void vcUnpackI(int n, const TvxComplex8* a, TvxComplex8* y, int incy);
TVX_API void vmcUnpackI(int n, const TvxComplex8* a, TvxComplex8* y, int incy, unsigned int mode);
TVX_API void vcunpacki(const int* n, const TvxComplex8* a, TvxComplex8* y, const int* incy);
TVX_API void vmcunpacki(const int* n, const TvxComplex8* a, TvxComplex8* y, const int* incy, const unsigned int* mode);
TVX_API void vcUnpackV(int n, const TvxComplex8* a, TvxComplex8* y, const int* iy);
TVX_API void vmcUnpackV(int n, const TvxComplex8* a, TvxComplex8* y, const int* iy, unsigned int mode);
TVX_API void vcunpackv(const int* n, const TvxComplex8* a, TvxComplex8* y, const int* iy);
TVX_API void vmcunpackv(const int* n, const TvxComplex8* a, TvxComplex8* y, const int* iy, const unsigned int* mode);
TVX_API void vcUnpackM(int n, const TvxComplex8* a, TvxComplex8* y, const int* my);
TVX_API void vmcUnpackM(int n, const TvxComplex8* a, TvxComplex8* y, const int* my, unsigned int mode);
TVX_API void vcunpackm(const int* n, const TvxComplex8* a, TvxComplex8* y, const int* my);
TVX_API void vmcunpackm(const int* n, const TvxComplex8* a, TvxComplex8* y, const int* my, const unsigned int* mode);
TVX_API void vzPackI(int n, const TvxComplex16* a, int inca, TvxComplex16* y);
TVX_API void vmzPackI(int n, const TvxComplex16* a, int inca, TvxComplex16* y, unsigned int mode);
TVX_API void vzpacki(const int* n, const TvxComplex16* a, const int* inca, TvxComplex16* y);
TVX_API void vmzpacki(const int* n, const TvxComplex16* a, const int* inca, TvxComplex16* y, const unsigned int* mode);
TVX_API void vzPackV(int n, const TvxComplex16* a, const int* ia, TvxComplex16* y);
TVX_API void vmzPackV(int n, const TvxComplex16* a, const int* ia, TvxComplex16* y, unsigned int mode);
TVX_API void vzpackv(const int* n, const TvxComplex16* a, const int* ia, TvxComplex16* y);
TVX_API void vmzpackv(const int* n, const TvxComplex16* a, const int* ia, TvxComplex16* y, const unsigned int* mode);
TVX_API void vzPackM(int n, const TvxComplex16* a, const int* ma, TvxComplex16* y);
TVX_API void vmzPackM(int n, const TvxComplex16* a, const int* ma, TvxComplex16* y, unsigned int mode);
TVX_API void vzpackm(const int* n, const TvxComplex16* a, const int* ma, TvxComplex16* y);
TVX_API void vmzpackm(const int* n, const TvxComplex16* a, const int* ma, TvxComplex16* y, const unsigned int* mode);
TVX_API void vzUnpackI(int n, const TvxComplex16* a, TvxComplex16* y, int incy);
TVX_API void vmzUnpackI(int n, const TvxComplex16* a, TvxComplex16* y, int incy, unsigned int mode);
TVX_API void vzunpacki(const int* n, const TvxComplex16* a, TvxComplex16* y, const int* incy);
TVX_API void vmzunpacki(const int* n, const TvxComplex16* a, TvxComplex16* y, const int* incy, const unsigned int* mode);
TVX_API void vzUnpackV(int n, const TvxComplex16* a, TvxComplex16* y, const int* iy);
TVX_API void vmzUnpackV(int n, const TvxComplex16* a, TvxComplex16* y, const int* iy, unsigned int mode);
TVX_API void vzunpackv(const int* n, const TvxComplex16* a, TvxComplex16* y, const int* iy);
TVX_API void vmzunpackv(const int* n, const TvxComplex16* a, TvxComplex16* y, const int* iy, const unsigned int* mode);
TVX_API void vzUnpackM(int n, const TvxComplex16* a, TvxComplex16* y, const int* my);
TVX_API void vmzUnpackM(int n, const TvxComplex16* a, TvxComplex16* y, const int* my, unsigned int mode);
TVX_API void vzunpackm(const int* n, const TvxComplex16* a, TvxComplex16* y, const int* my);
TVX_API void vmzunpackm(const int* n, const TvxComplex16* a, TvxComplex16* y, const int* my, const unsigned int* mode);
/* END GENERATED VECTOR DECLARATIONS */
/* clang-format on */

#ifdef __cplusplus
}
#endif

#endif /* TVX_VECTOR_H */
