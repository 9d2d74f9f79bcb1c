// crc32.cpp: CRC-32 through zlib.
#include "support/utilities/crc32.h"

#include <zlib.h>

unsigned long Crc32::GetCrc(unsigned char* const data, unsigned long length) {
    if (data == nullptr || length == 0) return 0;
    return static_cast<unsigned long>(crc32_z(0, data, static_cast<z_size_t>(length)));
}
