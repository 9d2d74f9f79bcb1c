// crc32.h: Crc32::GetCrc, the checksum the driver's components frame their private data with:
// the standard CRC-32 (ISO-HDLC, as zlib, PNG and ZIP compute it: reflected polynomial
// 0xEDB88320, initial value 0xFFFFFFFF, final XOR 0xFFFFFFFF; "123456789" gives 0xCBF43926),
// computed by zlib.
#pragma once

class Crc32 {
public:
    // The CRC-32 of `length` bytes; 0 for no bytes or a null pointer.
    static unsigned long GetCrc(unsigned char* const data, unsigned long length);
};
