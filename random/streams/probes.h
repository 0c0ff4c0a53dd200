// Processor probes of the AES-based and the hardware generators. They are plain function pointers
// of the library's internal namespace, compiled once: a test replaces them to see what a processor
// without AES or without a random instruction gives, or an instruction that keeps failing.
#pragma once

namespace tvx::rud::probes {

// Non-zero when the processor has the AES round instructions.
extern int (*aes_supported)(void);
// Non-zero when CPUID leaf 1 reports the random instruction (bit 30 of ECX); asked on every call.
extern int (*rdrand_supported)(void);
// One 64-bit read of the random instruction: 1 with the word stored (carry set), 0 on failure.
extern int (*rdrand64)(unsigned long long* word);

}  // namespace tvx::rud::probes

namespace tvx::rud {

// Whether a stream of catalogue row `row` can run on this processor: 0, or the status its blocks
// would give (RUD_RNG_ERROR_NONDETERM_NOT_SUPPORTED, RUD_RNG_ERROR_ARS5_NOT_SUPPORTED). Loading a
// saved stream asks this before it hands the stream back.
int row_availability(int row);

}  // namespace tvx::rud
