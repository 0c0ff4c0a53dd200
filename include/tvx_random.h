/*
 * Tarvex random-number streams: the stream object, the generator catalogue and the operations on
 * a live stream.
 *
 * A stream is an opaque record created by rudNewStream (or rudNewStreamEx) from a generator number
 * and seed words, and freed by rudDeleteStream. Every generator is reached through its catalogue
 * row (RudBrngProperties): sizes and four entry points, one of which sets, splits or advances the
 * state and three of which fill blocks of raw words or uniforms.
 *
 * Status: every function returns an int, 0 (RUD_STATUS_OK) or a non-negative result on success,
 * a negative RUD_... code on failure. A bad stream or generator number also prints
 * "Orvane Tarvex ERROR: Parameter %d was incorrect on entry to %s." through the parameter-error
 * reporter, with the position of the offending argument.
 *
 * Every export has an all-lower-case twin (rudnewstream, ...) that takes its scalars by pointer.
 * With TVX_VERBOSE=1 or 2 each call prints one line with its arguments and its duration.
 *
 * Thread safety: a stream is used by one thread at a time (no lock is taken on it); different
 * streams may be used from any number of threads. Register generators before other threads use
 * the catalogue.
 */
#ifndef TVX_RANDOM_H
#define TVX_RANDOM_H

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

/* ---- Generator numbers ------------------------------------------------------------------- */
/* A number is (row + 1) << 20 plus a member in the low 20 bits. Numbers below 0x100000 are an
 * older numbering kept working: 0..3 are the first four rows, 4..276 the members 0..272 of the
 * Wichmann-Hill set, 277 Sobol and 278 Niederreiter. */
#define RUD_BRNG_SHIFT 20
#define RUD_BRNG_INC (1 << RUD_BRNG_SHIFT)

#define RUD_BRNG_MCG31 (1 * RUD_BRNG_INC)
#define RUD_BRNG_R250 (2 * RUD_BRNG_INC)
#define RUD_BRNG_MRG32K3A (3 * RUD_BRNG_INC)
#define RUD_BRNG_MCG59 (4 * RUD_BRNG_INC)
#define RUD_BRNG_WH (5 * RUD_BRNG_INC)
#define RUD_BRNG_SOBOL (6 * RUD_BRNG_INC)
#define RUD_BRNG_NIEDERR (7 * RUD_BRNG_INC)
#define RUD_BRNG_MT19937 (8 * RUD_BRNG_INC)
#define RUD_BRNG_MT2203 (9 * RUD_BRNG_INC)
#define RUD_BRNG_IABSTRACT (10 * RUD_BRNG_INC)
#define RUD_BRNG_DABSTRACT (11 * RUD_BRNG_INC)
#define RUD_BRNG_SABSTRACT (12 * RUD_BRNG_INC)
#define RUD_BRNG_SFMT19937 (13 * RUD_BRNG_INC)
#define RUD_BRNG_NONDETERM (14 * RUD_BRNG_INC)
#define RUD_BRNG_ARS5 (15 * RUD_BRNG_INC)
#define RUD_BRNG_PHILOX4X32X10 (16 * RUD_BRNG_INC)

/* Operation codes of a catalogue row's InitStream. */
#define RUD_INIT_SEED 0
#define RUD_INIT_LEAPFROG 1
#define RUD_INIT_SKIPAHEAD 2
#define RUD_INIT_SKIPAHEADEX 3

/* ---- Status codes ------------------------------------------------------------------------ */
#define RUD_STATUS_OK 0
#define RUD_ERROR_BAD_OPERATION (-2)
#define RUD_ERROR_BAD_ARGS (-3)
#define RUD_ERROR_MEM_FAILURE (-4)
#define RUD_ERROR_NULL_PTR (-5)
#define RUD_RNG_ERROR_INVALID_BRNG (-1000)
#define RUD_RNG_ERROR_LEAPFROG_UNSUPPORTED (-1002)
#define RUD_RNG_ERROR_SKIPAHEAD_UNSUPPORTED (-1003)
#define RUD_RNG_ERROR_SKIPAHEADEX_UNSUPPORTED (-1004)
#define RUD_RNG_ERROR_BAD_STREAM (-1006)
#define RUD_RNG_ERROR_BAD_STATE_SIZE (-1008)
#define RUD_RNG_ERROR_BAD_WORD_SIZE (-1009)
#define RUD_RNG_ERROR_BAD_NSEEDS (-1010)
#define RUD_RNG_ERROR_BAD_NBITS (-1011)
#define RUD_RNG_ERROR_QRNG_PERIOD_ELAPSED (-1012)
#define RUD_RNG_ERROR_LEAPFROG_NSTREAMS (-1013)
#define RUD_RNG_ERROR_NO_NUMBER_BITS (-1014)
/* rudRegisterBrng on a catalogue that already holds RUD_MAX_BRNG_ROWS rows. */
#define RUD_RNG_ERROR_CATALOGUE_FULL (-1015)
#define RUD_RNG_ERROR_FILE_CLOSE (-1100)
#define RUD_RNG_ERROR_FILE_OPEN (-1101)
#define RUD_RNG_ERROR_FILE_WRITE (-1102)
#define RUD_RNG_ERROR_FILE_READ (-1103)
#define RUD_RNG_ERROR_BAD_FILE_FORMAT (-1110)
#define RUD_RNG_ERROR_BAD_FILE_VERSION (-1111)
#define RUD_RNG_ERROR_BAD_UPDATE (-1120)
#define RUD_RNG_ERROR_NO_NUMBERS (-1121)
#define RUD_RNG_ERROR_WRONG_BLOCK (-1122)
#define RUD_RNG_ERROR_NONDETERM_NOT_SUPPORTED (-1130)
#define RUD_RNG_ERROR_NONDETERM_RETRIES_EXCEEDED (-1131)
#define RUD_RNG_ERROR_ARS5_NOT_SUPPORTED (-1140)
#define RUD_RNG_ERROR_BAD_MEM_FORMAT (-1200)

/* Rows a catalogue can hold: 16 fixed rows and up to 496 registered ones. */
#define RUD_MAX_BRNG_ROWS 512

/* ---- Stream and catalogue row ------------------------------------------------------------ */
typedef struct rud_stream_record* RudStreamPtr;

/* op: RUD_INIT_SEED (n seed words at params), RUD_INIT_LEAPFROG (n = number of streams, params
 * points at the unsigned int index), RUD_INIT_SKIPAHEAD (params points at an unsigned 64-bit
 * count), RUD_INIT_SKIPAHEADEX (n 64-bit words of a count, least significant first). */
typedef int (*RudInitStreamPtr)(int op, RudStreamPtr stream, int n, const void* params);
/* n uniforms from [a, b) in single or double precision; the state advances by n outputs. */
typedef int (*RudsBRngPtr)(RudStreamPtr stream, int n, float r[], float a, float b);
typedef int (*RuddBRngPtr)(RudStreamPtr stream, int n, double r[], double a, double b);
/* n raw output words of WordSize bytes each; the area r holds n * WordSize bytes. */
typedef int (*RudiBRngPtr)(RudStreamPtr stream, int n, unsigned int r[]);

/* One catalogue row. A registered generator receives stream records whose first 16 bytes are
 * the library's header: its state starts 16 bytes behind the record's start and must leave the
 * header alone. StreamStateSize counts the whole record, header included. */
typedef struct RudBrngProperties {
  int StreamStateSize;
  int NSeeds;
  int IncludesZero;
  int WordSize;
  int NBits;
  RudInitStreamPtr InitStream;
  RudsBRngPtr sBRng;
  RuddBRngPtr dBRng;
  RudiBRngPtr iBRng;
} RudBrngProperties;

/* ---- Stream functions -------------------------------------------------------------------- */
/* Creates a stream of generator `brng` seeded with one word. Statuses: RUD_RNG_ERROR_INVALID_BRNG
 * for a number outside the catalogue (also the abstract numbers, the generators not provided by
 * this build and the two blank rows 279, 280 of the older numbering), RUD_ERROR_MEM_FAILURE,
 * RUD_ERROR_NULL_PTR for a null `stream`. When the seeding itself fails the stream is left
 * allocated and must be deleted. */
TVX_API int rudNewStream(RudStreamPtr* stream, int brng, unsigned int seed);
/* As rudNewStream with n seed words; n < 1 seeds the generator's default state. RUD_ERROR_NULL_PTR
 * for null `params` with n >= 1. */
TVX_API int rudNewStreamEx(RudStreamPtr* stream, int brng, int n, const unsigned int params[]);
/* Frees the stream and its extension blocks and nulls *stream. RUD_ERROR_NULL_PTR for a null
 * stream, RUD_RNG_ERROR_BAD_STREAM for a record that is not a live stream. */
TVX_API int rudDeleteStream(RudStreamPtr* stream);
/* The generator number the stream was created with, exactly as given. */
TVX_API int rudGetStreamStateBrng(RudStreamPtr stream);
/* Bytes of the stream's saved image: StreamStateSize + 8 + 24 + size for each extension block. */
TVX_API int rudGetStreamSize(RudStreamPtr stream);
/* Adds a row behind the last one and returns its number ((rows before << 20) + 0x100000).
 * Checks in order: StreamStateSize below 16 (the header alone) RUD_RNG_ERROR_BAD_STATE_SIZE,
 * WordSize not 4, 8 or 16 RUD_RNG_ERROR_BAD_WORD_SIZE, NSeeds < 1 RUD_RNG_ERROR_BAD_NSEEDS,
 * NBits < 1 RUD_RNG_ERROR_BAD_NBITS, a null entry point (or a null row) RUD_ERROR_NULL_PTR,
 * a full catalogue RUD_RNG_ERROR_CATALOGUE_FULL. */
TVX_API int rudRegisterBrng(const RudBrngProperties* properties);
/* Copies the row of `brng` (a set member gives its family's row). A blank row of the older
 * numbering copies as all zeros. */
TVX_API int rudGetBrngProperties(int brng, RudBrngProperties* properties);
/* Rows in the catalogue: 16 plus the registered ones. */
TVX_API int rudGetNumRegBrngs(void);
/* Makes the stream the k-th of nstreams interleaved streams. RUD_RNG_ERROR_LEAPFROG_NSTREAMS for
 * nstreams < 0, RUD_RNG_ERROR_LEAPFROG_UNSUPPORTED where the generator has no leapfrog. */
TVX_API int rudLeapfrogStream(RudStreamPtr stream, unsigned int k, int nstreams);
/* Advances the stream by nskip outputs, nskip taken as unsigned 64 bits.
 * RUD_RNG_ERROR_SKIPAHEAD_UNSUPPORTED where the generator has no skip-ahead. */
TVX_API int rudSkipAheadStream(RudStreamPtr stream, long long nskip);
/* Makes *copy a new stream with the source's generator, state and extension blocks (a shared
 * block is shared once more). RUD_ERROR_MEM_FAILURE: when copying a block fails the copy is left
 * allocated without blocks, *copy set, for the caller to delete. */
TVX_API int rudCopyStream(RudStreamPtr* copy, RudStreamPtr source);
/* Copies the source's state words (NSeeds x WordSize bytes of its row, clipped to what both
 * records hold; the generators are not compared) and replaces the destination's extension blocks
 * by copies of the source's. A leapfrog multiplier is not part of the state words. */
TVX_API int rudCopyStreamState(RudStreamPtr destination, RudStreamPtr source);

/* Saved images: a little-endian format (24-byte header, the generator's state, each extension
 * block) that restores the stream bit for bit in another run. rudGetStreamSize gives the bytes a
 * memory image needs. A null file name or memory pointer gives RUD_ERROR_BAD_ARGS.
 * rudSaveStreamF writes a regular file whole or not at all (a new file beside it, renamed over
 * the name): RUD_RNG_ERROR_FILE_OPEN when it can't be created or can't take the name,
 * RUD_RNG_ERROR_FILE_WRITE on a failed write, RUD_RNG_ERROR_FILE_CLOSE on a failed close.
 * The loads set *stream to null first and leave it null on failure, having freed what they made:
 * RUD_RNG_ERROR_FILE_OPEN, RUD_RNG_ERROR_FILE_READ (a file cut short),
 * RUD_RNG_ERROR_BAD_FILE_FORMAT (bad magic, sizes, generator or state),
 * RUD_RNG_ERROR_BAD_FILE_VERSION (a newer version), RUD_RNG_ERROR_BAD_MEM_FORMAT (any of those
 * two in a memory image), RUD_RNG_ERROR_NONDETERM_NOT_SUPPORTED and
 * RUD_RNG_ERROR_ARS5_NOT_SUPPORTED (the generator can't run on this processor),
 * RUD_ERROR_MEM_FAILURE. rudLoadStreamM trusts the caller that memptr holds a whole image. */
TVX_API int rudSaveStreamF(RudStreamPtr stream, const char* fname);
TVX_API int rudLoadStreamF(RudStreamPtr* stream, const char* fname);
TVX_API int rudSaveStreamM(RudStreamPtr stream, char* memptr);
TVX_API int rudLoadStreamM(RudStreamPtr* stream, const char* memptr);

/* Twins taking every argument by pointer. The file forms take the name's length: a negative
 * length means a zero-terminated name, else that many bytes are the name. */
TVX_API int rudnewstream(RudStreamPtr* stream, const int* brng, const unsigned int* seed);
TVX_API int rudnewstreamex(RudStreamPtr* stream, const int* brng, const int* n,
                           const unsigned int params[]);
TVX_API int ruddeletestream(RudStreamPtr* stream);
TVX_API int rudgetstreamstatebrng(const RudStreamPtr* stream);
TVX_API int rudgetstreamsize(const RudStreamPtr* stream);
TVX_API int rudregisterbrng(const RudBrngProperties* properties);
TVX_API int rudgetbrngproperties(const int* brng, RudBrngProperties* properties);
TVX_API int rudgetnumregbrngs(void);
TVX_API int rudleapfrogstream(RudStreamPtr* stream, const unsigned int* k, const int* nstreams);
TVX_API int rudskipaheadstream(RudStreamPtr* stream, const long long* nskip);
TVX_API int rudcopystream(RudStreamPtr* copy, const RudStreamPtr* source);
TVX_API int rudcopystreamstate(RudStreamPtr* destination, const RudStreamPtr* source);
TVX_API int rudsavestreamf(const RudStreamPtr* stream, const char* fname, int length);
TVX_API int rudloadstreamf(RudStreamPtr* stream, const char* fname, int length);
TVX_API int rudsavestreamm(const RudStreamPtr* stream, char* memptr);
TVX_API int rudloadstreamm(RudStreamPtr* stream, const char* memptr);

/* ---- Distributions ----------------------------------------------------------------------- */
/* Every distribution has one shape:
 *   v?Rng<Name>(method, stream, n, r, parameters...)
 * writing n results to r: vd double, vs single, vi int (the UniformBits forms write raw words).
 * Returns 0 on success, or a negative status:
 *   RUD_ERROR_BAD_ARGS: an argument was refused; the error line names the export and the
 *     position of the argument: method 1 (negative, or not a method of this distribution),
 *     n 3 (negative), r 4 (null), parameters from 5 on. Real parameters are refused by true
 *     comparisons, so a NaN parameter is not refused.
 *   RUD_ERROR_NULL_PTR, RUD_RNG_ERROR_BAD_STREAM: the stream test failed (position 2).
 *   a generator's own negative status, passed through unchanged.
 * n = 0 returns 0 at once, before r or any parameter is looked at.
 *
 * The values depend only on the stream's state and the arguments: they are the same on every
 * processor, in every instruction-set variant (but see the kernel-based distributions below),
 * and for any cut of a request into several calls.
 *
 * Uniform: r on [a, b), a < b. vdRngUniform and vsRngUniform take RUD_RNG_METHOD_UNIFORM_STD,
 *   optionally with RUD_RNG_METHOD_ACCURACY_FLAG: without it, rounding of a + u (b - a) may give
 *   b itself (or, in single precision, a value rounded up to b); with it every value is kept in
 *   [a, b). viRngUniform gives integers a .. b - 1, the floor of a double uniform on [a, b).
 * UniformBits: the generator's raw words, of the row's WordSize bytes each (r must hold
 *   n * WordSize bytes). UniformBits32: n 32-bit words of full random bits; UniformBits64: n
 *   64-bit words, each two successive 32-bit outputs with the earlier in the low half. Both give
 *   RUD_RNG_ERROR_NO_NUMBER_BITS for generators whose words are not 32 full bits (MCG31, R250,
 *   MRG32K3A, the Wichmann-Hill set, the quasi-random and abstract generators, registered ones);
 *   MCG59 gives the top 32 of its 59 bits.
 *
 * Gaussian (a, sigma > 0): normal values of mean a and standard deviation sigma, by
 *   RUD_RNG_METHOD_GAUSSIAN_BOXMULLER (two uniforms per value), RUD_RNG_METHOD_GAUSSIAN_BOXMULLER2
 *   (both values of each pair of uniforms; a pair cut by the end of a call keeps its second value
 *   in the stream, so it follows the stream into copies and saved images, and the values do not
 *   depend on the cut) or RUD_RNG_METHOD_GAUSSIAN_ICDF (one uniform per value, for quasi-random
 *   streams). A uniform of 0 gives a large finite value, never an infinity.
 * Lognormal (a, sigma > 0, b, beta > 0): b + beta exp(g), g normal with mean a and deviation
 *   sigma; RUD_RNG_METHOD_LOGNORMAL_BOXMULLER2 or RUD_RNG_METHOD_LOGNORMAL_ICDF, the flag keeps
 *   values at or above b (RUD_RNG_METHOD_LOGNORMAL_ICDF_ACCURATE; the accurate form of
 *   BOXMULLER2 is the inverse CDF).
 * Exponential (a, beta > 0): a - beta ln(u); Rayleigh (a, beta > 0): a + beta sqrt(-ln(u));
 *   Weibull (alpha > 0, a, beta > 0): a + beta (-ln(u))^(1/alpha). Method 0, flag allowed: the
 *   accurate form keeps every value at or above a.
 * Cauchy (a, beta > 0): a + beta tan(v), v uniform on [-pi/2, pi/2); Gumbel (a, beta > 0):
 *   a + beta ln(-ln(u)); Laplace (a, beta > 0): a -+ beta ln(u1), the sign from a second
 *   uniform. Method 0, no flag.
 * These transform uniforms by the library's vector kernels (EP accuracy in double, LA in single)
 *   with the kernels of the processor's instruction-set variant, so their values agree across
 *   variants within that accuracy, not bit for bit; the uniforms they consume are the same
 *   everywhere. The errors a kernel meets inside (a logarithm of 0) are settled by the
 *   distribution: the thread's mode word and error callback are as before when the call returns.
 *   A build without one of the kernels a method needs returns RUD_ERROR_BAD_OPERATION.
 *
 * Each export has an all-lower-case twin taking method, stream, n and the scalar parameters by
 * pointer; a null pointer among them is refused at its argument's position.
 *
 * Thread safety: as for streams; the calls change no state but the stream's. */

/* The accuracy flag: added to a method of a distribution that honours it, results are clamped
 * into the distribution's support against rounding. */
#define RUD_RNG_METHOD_ACCURACY_FLAG 0x40000000

#define RUD_RNG_METHOD_UNIFORM_STD 0
#define RUD_RNG_METHOD_UNIFORM_STD_ACCURATE \
  (RUD_RNG_METHOD_UNIFORM_STD | RUD_RNG_METHOD_ACCURACY_FLAG)
#define RUD_RNG_METHOD_UNIFORMBITS_STD 0
#define RUD_RNG_METHOD_UNIFORMBITS32_STD 0
#define RUD_RNG_METHOD_UNIFORMBITS64_STD 0

#define RUD_RNG_METHOD_GAUSSIAN_BOXMULLER 0
#define RUD_RNG_METHOD_GAUSSIAN_BOXMULLER2 1
#define RUD_RNG_METHOD_GAUSSIAN_ICDF 2
#define RUD_RNG_METHOD_LOGNORMAL_BOXMULLER2 0
#define RUD_RNG_METHOD_LOGNORMAL_ICDF 1
#define RUD_RNG_METHOD_LOGNORMAL_ICDF_ACCURATE \
  (RUD_RNG_METHOD_LOGNORMAL_ICDF | RUD_RNG_METHOD_ACCURACY_FLAG)
#define RUD_RNG_METHOD_EXPONENTIAL_ICDF 0
#define RUD_RNG_METHOD_EXPONENTIAL_ICDF_ACCURATE \
  (RUD_RNG_METHOD_EXPONENTIAL_ICDF | RUD_RNG_METHOD_ACCURACY_FLAG)
#define RUD_RNG_METHOD_RAYLEIGH_ICDF 0
#define RUD_RNG_METHOD_RAYLEIGH_ICDF_ACCURATE \
  (RUD_RNG_METHOD_RAYLEIGH_ICDF | RUD_RNG_METHOD_ACCURACY_FLAG)
#define RUD_RNG_METHOD_WEIBULL_ICDF 0
#define RUD_RNG_METHOD_WEIBULL_ICDF_ACCURATE \
  (RUD_RNG_METHOD_WEIBULL_ICDF | RUD_RNG_METHOD_ACCURACY_FLAG)
#define RUD_RNG_METHOD_CAUCHY_ICDF 0
#define RUD_RNG_METHOD_GUMBEL_ICDF 0
#define RUD_RNG_METHOD_LAPLACE_ICDF 0

/* The block below is generated from random/distributions/distributions.def by
 * tools/gen_random_header.py; a test fails when it is out of date. Do not edit it by hand. */
/* clang-format off */
/* BEGIN GENERATED DISTRIBUTION DECLARATIONS */
TVX_API int vdRngUniform(int method, RudStreamPtr stream, int n, double r[], double a, double b);
TVX_API int vdrnguniform(const int* method, const RudStreamPtr* stream, const int* n, double r[], const double* a, const double* b);
TVX_API int vsRngUniform(int method, RudStreamPtr stream, int n, float r[], float a, float b);
TVX_API int vsrnguniform(const int* method, const RudStreamPtr* stream, const int* n, float r[], const float* a, const float* b);
TVX_API int vdRngGaussian(int method, RudStreamPtr stream, int n, double r[], double a, double sigma);
TVX_API int vdrnggaussian(const int* method, const RudStreamPtr* stream, const int* n, double r[], const double* a, const double* sigma);
TVX_API int vsRngGaussian(int method, RudStreamPtr stream, int n, float r[], float a, float sigma);
TVX_API int vsrnggaussian(const int* method, const RudStreamPtr* stream, const int* n, float r[], const float* a, const float* sigma);
TVX_API int vdRngLognormal(int method, RudStreamPtr stream, int n, double r[], double a, double sigma, double b, double beta);
TVX_API int vdrnglognormal(const int* method, const RudStreamPtr* stream, const int* n, double r[], const double* a, const double* sigma, const double* b, const double* beta);
TVX_API int vsRngLognormal(int method, RudStreamPtr stream, int n, float r[], float a, float sigma, float b, float beta);
TVX_API int vsrnglognormal(const int* method, const RudStreamPtr* stream, const int* n, float r[], const float* a, const float* sigma, const float* b, const float* beta);
TVX_API int vdRngExponential(int method, RudStreamPtr stream, int n, double r[], double a, double beta);
TVX_API int vdrngexponential(const int* method, const RudStreamPtr* stream, const int* n, double r[], const double* a, const double* beta);
TVX_API int vsRngExponential(int method, RudStreamPtr stream, int n, float r[], float a, float beta);
TVX_API int vsrngexponential(const int* method, const RudStreamPtr* stream, const int* n, float r[], const float* a, const float* beta);
TVX_API int vdRngRayleigh(int method, RudStreamPtr stream, int n, double r[], double a, double beta);
TVX_API int vdrngrayleigh(const int* method, const RudStreamPtr* stream, const int* n, double r[], const double* a, const double* beta);
TVX_API int vsRngRayleigh(int method, RudStreamPtr stream, int n, float r[], float a, float beta);
TVX_API int vsrngrayleigh(const int* method, const RudStreamPtr* stream, const int* n, float r[], const float* a, const float* beta);
TVX_API int vdRngCauchy(int method, RudStreamPtr stream, int n, double r[], double a, double beta);
TVX_API int vdrngcauchy(const int* method, const RudStreamPtr* stream, const int* n, double r[], const double* a, const double* beta);
TVX_API int vsRngCauchy(int method, RudStreamPtr stream, int n, float r[], float a, float beta);
TVX_API int vsrngcauchy(const int* method, const RudStreamPtr* stream, const int* n, float r[], const float* a, const float* beta);
TVX_API int vdRngGumbel(int method, RudStreamPtr stream, int n, double r[], double a, double beta);
TVX_API int vdrnggumbel(const int* method, const RudStreamPtr* stream, const int* n, double r[], const double* a, const double* beta);
TVX_API int vsRngGumbel(int method, RudStreamPtr stream, int n, float r[], float a, float beta);
TVX_API int vsrnggumbel(const int* method, const RudStreamPtr* stream, const int* n, float r[], const float* a, const float* beta);
TVX_API int vdRngLaplace(int method, RudStreamPtr stream, int n, double r[], double a, double beta);
TVX_API int vdrnglaplace(const int* method, const RudStreamPtr* stream, const int* n, double r[], const double* a, const double* beta);
TVX_API int vsRngLaplace(int method, RudStreamPtr stream, int n, float r[], float a, float beta);
TVX_API int vsrnglaplace(const int* method, const RudStreamPtr* stream, const int* n, float r[], const float* a, const float* beta);
TVX_API int vdRngWeibull(int method, RudStreamPtr stream, int n, double r[], double alpha, double a, double beta);
TVX_API int vdrngweibull(const int* method, const RudStreamPtr* stream, const int* n, double r[], const double* alpha, const double* a, const double* beta);
TVX_API int vsRngWeibull(int method, RudStreamPtr stream, int n, float r[], float alpha, float a, float beta);
TVX_API int vsrngweibull(const int* method, const RudStreamPtr* stream, const int* n, float r[], const float* alpha, const float* a, const float* beta);
TVX_API int viRngUniform(int method, RudStreamPtr stream, int n, int r[], int a, int b);
TVX_API int virnguniform(const int* method, const RudStreamPtr* stream, const int* n, int r[], const int* a, const int* b);
TVX_API int viRngUniformBits(int method, RudStreamPtr stream, int n, unsigned int r[]);
TVX_API int virnguniformbits(const int* method, const RudStreamPtr* stream, const int* n, unsigned int r[]);
TVX_API int viRngUniformBits32(int method, RudStreamPtr stream, int n, unsigned int r[]);
TVX_API int virnguniformbits32(const int* method, const RudStreamPtr* stream, const int* n, unsigned int r[]);
TVX_API int viRngUniformBits64(int method, RudStreamPtr stream, int n, unsigned long long r[]);
TVX_API int virnguniformbits64(const int* method, const RudStreamPtr* stream, const int* n, unsigned long long r[]);
/* END GENERATED DISTRIBUTION DECLARATIONS */
/* clang-format on */

#ifdef __cplusplus
}
#endif

#endif /* TVX_RANDOM_H */
