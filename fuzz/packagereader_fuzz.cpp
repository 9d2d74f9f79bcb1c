// packagereader_fuzz.cpp: libFuzzer target over the XPS package reader alone, without filters
// or writer, so that it runs many times faster than fuzz_package and reaches what a
// pass-through never asks for: every part the reader hands out is read to its end (inflating,
// joining pieces, checking sizes and CRCs), and every page's resources are listed through its
// part iterator, which parses the page markup for the parts it refers to.
//
// A failure must be a classified JobError (never "internal") or a failing HRESULT with the
// cause recorded; anything else is a finding.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

#include "fuzz/fuzzinput.h"
#include "pipelinehost/jobreader.h"
#include "pipelinehost/sourcepackage.h"

namespace {

using namespace pipelinehost;

void ReadToTheEnd(IUnknown* part) {
    CComQIPtr<IPartBase> base(part);
    if (!base) return;
    CComPtr<IPrintReadStream> stream;
    if (FAILED(base->GetStream(&stream)) || !stream) return;
    char buffer[16384];
    for (;;) {
        ULONG read = 0;
        BOOL end = FALSE;
        if (FAILED(stream->ReadBytes(buffer, sizeof buffer, &read, &end)) || end || read == 0)
            return;
    }
}

void ListResources(IFixedPage* page) {
    CComPtr<IXpsPartIterator> parts;
    if (FAILED(page->GetXpsPartIterator(&parts)) || !parts) return;
    for (parts->Reset(); !parts->IsDone(); parts->Next()) {
        CComBSTR uri;
        CComPtr<IUnknown> resource;
        if (FAILED(parts->Current(&uri, &resource))) return;
        ReadToTheEnd(resource);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    const std::string path = fuzzinput::WriteFile(
        "reader.xps", std::string_view(reinterpret_cast<const char*>(data), size));
    ReaderLimits limits;
    limits.maxPartSize = 8u << 20;
    limits.maxMarkupSize = 8u << 20;
    auto status = std::make_shared<JobStatus>();
    std::shared_ptr<SourcePackage> package;
    try {
        package = SourcePackage::Open(path, limits);
        package->SetStatus(status);
        CComPtr<JobReader> reader;
        reader.Attach(new JobReader(package, std::make_shared<JobStatus>()));
        for (;;) {
            CComPtr<IUnknown> part;
            const HRESULT hr = reader->GetXpsPart(&part);
            if (FAILED(hr)) {
                if (!status->Failed() && hr != E_OUTOFMEMORY) __builtin_trap();
                break;
            }
            if (!part) break;
            ReadToTheEnd(part);
            if (CComQIPtr<IFixedPage> page{part}) ListResources(page);
        }
    } catch (const JobError& error) {
        if (error.Kind() == ErrorKind::Internal) __builtin_trap();
    }
    if (const auto error = status->Error(); error && error->Kind() == ErrorKind::Internal)
        __builtin_trap();
    return 0;
}
