// Default processor check of the catalogue rows, compiled once: every row can run. A generator
// that needs a processor feature (AES rounds, a random instruction) defines the real check, which
// takes the place of this weak one at link time.
#include "random/streams/image.h"

namespace tvx::rud {

__attribute__((weak)) int row_availability(int) {
  return RUD_STATUS_OK;
}

}  // namespace tvx::rud
