// The uniform family: Uniform in double, single and integer form, and raw bits in the generator's
// own words, in 32-bit words and in 64-bit words. Compiled once per instruction-set variant.
#include <cstdint>

#include "random/distributions/block.h"

namespace tvx::TVX_VNS::dist {
namespace {

// How UniformBits32 and UniformBits64 fill their words, by catalogue row.
enum class Bits : std::uint8_t {
  kRefuse,  // fewer than 32 significant bits in a word, or words that are not plain bits
  kMcg59,   // top 32 of the 59 bits of each word
  kDirect,  // the generator's words are already 32 full bits
};

// Rows 0..15 of the fixed catalogue. MCG31 has 31 bits; R250 has 32 but is refused all the same;
// Wichmann-Hill, the quasi-random and the abstract generators give no plain 32-bit words.
// A registered generator (row 16 on) is refused too: nothing is known of its bits.
constexpr Bits kBitsOfRow[rud::kFixedRows] = {
    Bits::kRefuse, Bits::kRefuse, Bits::kRefuse, Bits::kMcg59,   // MCG31 R250 MRG32K3A MCG59
    Bits::kRefuse, Bits::kRefuse, Bits::kRefuse,                 // WH SOBOL NIEDERR
    Bits::kDirect, Bits::kDirect,                                // MT19937 MT2203
    Bits::kRefuse, Bits::kRefuse, Bits::kRefuse,                 // abstract i, d, s
    Bits::kDirect, Bits::kDirect, Bits::kDirect, Bits::kDirect,  // SFMT NONDETERM ARS5 PHILOX
};

Bits bits_of(RudStreamPtr stream) {
  const int row = rud::row_index(rud::header(stream)->brng);
  return row >= 0 && row < rud::kFixedRows ? kBitsOfRow[row] : Bits::kRefuse;
}

// MCG59 words drawn per round of the bit forms.
constexpr int kWordRound = 2048;

// The next m MCG59 words, each shifted right by 27: its top 32 bits.
int mcg59_top32(const RudBrngProperties* row, RudStreamPtr stream, int m, std::uint64_t* words) {
  const int status = row->iBRng(stream, m, reinterpret_cast<unsigned int*>(words));
  for (int j = 0; j < m; ++j) words[j] >>= 27;
  return status;
}

}  // namespace
}  // namespace tvx::TVX_VNS::dist

using namespace tvx::TVX_VNS;

extern "C" {

int TVX_ENTRY(rud_vdRngUniform)(int method, RudStreamPtr stream, int n, double* r, double a,
                                double b) {
  return dist::uniform_d(method, stream, n, r, a, b);
}

int TVX_ENTRY(rud_vsRngUniform)(int method, RudStreamPtr stream, int n, float* r, float a,
                                float b) {
  return dist::uniform_s(method, stream, n, r, a, b);
}

// Doubles on [a, b), each taken down to the integer at or below it: trunc comes from the kernel
// row, and one is taken off where trunc went up (negative non-integers). Values lie in a .. b - 1,
// but for a double that rounding brought to b.
int TVX_ENTRY(rud_viRngUniform)(int method, RudStreamPtr stream, int n, int* r, int a, int b) {
  (void)method;
  return dist::in_rounds(n, [&](int done, int m) {
    alignas(64) double u[dist::kRound];
    alignas(64) double t[dist::kRound];
    const int status =
        dist::uniform_d(0, stream, m, u, static_cast<double>(a), static_cast<double>(b));
    if (status < 0) return status;
    dist::kernel<int>(tvx_row_trunc_d, m, u, t);
    int* out = r + done;
    for (int j = 0; j < m; ++j) out[j] = static_cast<int>(t[j]) - (t[j] > u[j] ? 1 : 0);
    return status;
  });
}

int TVX_ENTRY(rud_viRngUniformBits)(int method, RudStreamPtr stream, int n, unsigned int* r) {
  (void)method;
  const RudBrngProperties* row = dist::row_of(stream);
  if (row == nullptr || row->iBRng == nullptr) return RUD_RNG_ERROR_INVALID_BRNG;
  return row->iBRng(stream, n, r);
}

int TVX_ENTRY(rud_viRngUniformBits32)(int method, RudStreamPtr stream, int n, unsigned int* r) {
  (void)method;
  const dist::Bits bits = dist::bits_of(stream);
  if (bits == dist::Bits::kRefuse) return RUD_RNG_ERROR_NO_NUMBER_BITS;
  const RudBrngProperties* row = dist::row_of(stream);
  if (row == nullptr || row->iBRng == nullptr) return RUD_RNG_ERROR_INVALID_BRNG;
  if (bits == dist::Bits::kDirect) return row->iBRng(stream, n, r);
  for (int done = 0; done < n;) {
    alignas(64) std::uint64_t words[dist::kWordRound];
    const int m = std::min(dist::kWordRound, n - done);
    const int status = dist::mcg59_top32(row, stream, m, words);
    if (status < 0) return status;
    for (int j = 0; j < m; ++j) r[done + j] = static_cast<unsigned int>(words[j]);
    done += m;
  }
  return RUD_STATUS_OK;
}

// Each 64-bit result is two successive 32-bit outputs, the earlier in the low half.
int TVX_ENTRY(rud_viRngUniformBits64)(int method, RudStreamPtr stream, int n,
                                      unsigned long long* r) {
  (void)method;
  const dist::Bits bits = dist::bits_of(stream);
  if (bits == dist::Bits::kRefuse) return RUD_RNG_ERROR_NO_NUMBER_BITS;
  const RudBrngProperties* row = dist::row_of(stream);
  if (row == nullptr || row->iBRng == nullptr) return RUD_RNG_ERROR_INVALID_BRNG;
  if (bits == dist::Bits::kDirect) {
    // 2 n words may not fit an int: ask for them in pieces, which the generator joins seamlessly.
    constexpr int kPiece = 1 << 29;
    for (int done = 0; done < n;) {
      const int m = std::min(kPiece, n - done);
      const int status = row->iBRng(stream, 2 * m, reinterpret_cast<unsigned int*>(r + done));
      if (status < 0) return status;
      done += m;
    }
    return RUD_STATUS_OK;
  }
  constexpr int kResults = dist::kWordRound / 2;
  for (int done = 0; done < n;) {
    alignas(64) std::uint64_t words[dist::kWordRound];
    const int m = std::min(kResults, n - done);
    const int status = dist::mcg59_top32(row, stream, 2 * m, words);
    if (status < 0) return status;
    for (int j = 0; j < m; ++j) r[done + j] = words[2 * j] | (words[2 * j + 1] << 32);
    done += m;
  }
  return RUD_STATUS_OK;
}

}  // extern "C"
