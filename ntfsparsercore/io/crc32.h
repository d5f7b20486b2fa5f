// The CRC-32 of GPT headers and partition entry arrays (the reflected
// polynomial 0xEDB88320, initial and final value 0xFFFFFFFF).
#ifndef TOLVAR_NTFSPARSERCORE_IO_CRC32_H_
#define TOLVAR_NTFSPARSERCORE_IO_CRC32_H_

#include <cstddef>
#include <cstdint>

namespace ntfsparsercore {
namespace io {

uint32_t Crc32(const uint8_t* bytes, std::size_t size);

}  // namespace io
}  // namespace ntfsparsercore

#endif  // TOLVAR_NTFSPARSERCORE_IO_CRC32_H_
