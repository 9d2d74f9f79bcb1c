// fuzzinput.h: what the fuzz targets share: the input as a stream of the kinds the library
// reads (an IPrintReadStream or an IStream over the bytes), the one exception type the library
// documents for bad input, and a file in a private temporary folder for the targets that go
// through the host, which reads packages from files.
#pragma once

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>

#include "platform/com/atl.h"
#include "platform/com/comruntime.h"
#include "platform/printpipeline/printstreams.h"

namespace fuzzinput {

inline CComPtr<IPrintReadStream> ReadStreamOf(std::string_view bytes) {
    CComPtr<IPrintReadStream> stream;
    if (FAILED(platform::CreatePrintReadStreamOnBytes(bytes.data(), bytes.size(), &stream)))
        __builtin_trap();
    return stream;
}

inline CComPtr<IStream> StreamOf(std::string_view bytes) {
    CComPtr<IStream> stream;
    if (FAILED(CreateStreamOnHGlobal(nullptr, TRUE, &stream))) __builtin_trap();
    ULONG written = 0;
    if (!bytes.empty() &&
        (FAILED(stream->Write(bytes.data(), static_cast<ULONG>(bytes.size()), &written)) ||
         written != bytes.size())) {
        __builtin_trap();
    }
    LARGE_INTEGER start{};
    stream->Seek(start, STREAM_SEEK_SET, nullptr);
    return stream;
}

// A folder of its own under TMPDIR (or /tmp), made on first use and removed at exit.
// The name is never destroyed, so that the removal at exit can still read it.
inline const std::string& PrivateFolder() {
    static const std::string& folder = *new std::string([] {
        const char* base = std::getenv("TMPDIR");
        std::string pattern =
            std::string(base != nullptr && *base != '\0' ? base : "/tmp") + "/fuzz.XXXXXX";
        if (::mkdtemp(pattern.data()) == nullptr) __builtin_trap();
        std::atexit([] {
            std::error_code ignored;
            std::filesystem::remove_all(PrivateFolder(), ignored);
        });
        return pattern;
    }());
    return folder;
}

inline std::string WriteFile(const std::string& name, std::string_view bytes) {
    const std::string path = PrivateFolder() + "/" + name;
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (file == nullptr) __builtin_trap();
    if (!bytes.empty() && std::fwrite(bytes.data(), 1, bytes.size(), file) != bytes.size())
        __builtin_trap();
    if (std::fclose(file) != 0) __builtin_trap();
    return path;
}

}  // namespace fuzzinput
