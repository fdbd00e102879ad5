// Fields of the vendor channel's data buffers, which carry their integers in the host's byte
// order (little-endian on the target), at any alignment.
#ifndef TARVIK_BYTES_H
#define TARVIK_BYTES_H

#include <stdint.h>
#include <string.h>

namespace tarvik_bytes {

inline uint32_t LoadU32(const uint8_t *at) {
  uint32_t v;
  memcpy(&v, at, sizeof(v));
  return v;
}

inline void StoreU32(uint8_t *at, uint32_t v) {
  memcpy(at, &v, sizeof(v));
}

}  // namespace tarvik_bytes

#endif  // TARVIK_BYTES_H
