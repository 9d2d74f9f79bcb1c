// printstreams.h: in-memory implementations of the pipeline's raw stream interfaces, for code
// that has bytes in hand (a default PrintTicket, a test's part content) and must pass them where
// the pipeline expects an IPrintReadStream, an IPrintReadStreamFactory or an IPrintWriteStream.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "platform/printpipeline/filterpipeline.h"

namespace platform {

// A read stream over a private copy of the bytes, positioned at 0. Seeking before the start
// gives E_INVALIDARG (STG_E_INVALIDFUNCTION for an unknown origin); seeking past the end is
// allowed and reads there return 0 bytes with *pbEndOfFile set.
HRESULT CreatePrintReadStreamOnBytes(const void* data, std::size_t size, IPrintReadStream** stream);

// A factory whose GetStream hands out a new read stream over the same bytes at each call.
HRESULT CreatePrintReadStreamFactoryOnBytes(const void* data, std::size_t size,
                                            IPrintReadStreamFactory** factory);

// Where a memory write stream puts its bytes; shared so that the bytes outlive the stream.
struct PrintWriteSink {
    std::string bytes;
    bool closed = false;
};

// A write stream appending to sink->bytes. Close sets sink->closed; WriteBytes after Close
// returns E_UNEXPECTED and writes nothing.
HRESULT CreatePrintWriteStreamOnSink(std::shared_ptr<PrintWriteSink> sink,
                                     IPrintWriteStream** stream);

}  // namespace platform
