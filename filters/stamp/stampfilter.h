// stampfilter.h: StampFilter, a sample filter that attaches one shared resource part (an image
// or a font) to every page of a job through the filter's resource cache, so that the output
// package holds the part once however many pages carry it. It is its own resource writer.
//
//   <Filter name="stamp" builtin="stamp">
//     <Parameter name="File" value="/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf"/>
//   </Filter>
//
// Parameters (both optional): File, the image (.png, .jpg, .jpeg, .tif, .tiff, .wdp, .jxr) or
// font (.ttf, .otf) to attach, by default a small PNG the filter draws itself; Uri, the part name
// in the output package, by default /Resources/Stamp/ followed by the file's name. The page
// markup is not changed: the part is a required resource of each page. docs/filters.md has more.
#pragma once

#include <string>
#include <vector>

#include "filterpipeline/filterutilities/reswriter.h"
#include "filterpipeline/filterutilities/xpsfilterbase.h"

class StampFilter : public XpsFilterBase, public IResWriter {
public:
    // The largest File the filter reads.
    static constexpr std::size_t kMaxResourceBytes = 64u << 20;

    StampFilter();
    ~StampFilter() override;

    // Stores the pipeline objects, then reads File and Uri and loads the resource. A file that
    // cannot be read, an unknown extension or a bad Uri gives a failure (E_INVALIDARG or the
    // file error), with the reason sent to the debug output.
    HRESULT InitializeFilter(IInterFilterCommunicator* communicator,
                             IPrintPipelinePropertyBag* propertyBag,
                             IPrintPipelineManagerControl* managerControl) override;

    // IResWriter: the resource's bytes, its cache key, its part name and its kind.
    HRESULT WriteData(IUnknown* newPart, IPrintWriteStream* stream) override;
    HRESULT GetKeyName(BSTR* key) override;
    HRESULT GetResourceUri(BSTR* uri) override;
    REFIID GetPartInterfaceId() override;

    // The default resource: a 48 by 48 pixel PNG of a red ring, encoded with zlib.
    static std::vector<unsigned char> MakeStampImage();

    // What InitializeFilter chose.
    const std::wstring& ResourceUri() const { return m_uri; }
    const std::vector<unsigned char>& ResourceBytes() const { return m_bytes; }

protected:
    HRESULT OnFixedPage(IFixedPage* page) override;

private:
    HRESULT Configure(std::string& error);

    std::wstring m_uri;
    bool m_isFont = false;
    std::vector<unsigned char> m_bytes;
};

// A new StampFilter (one reference), as the pipeline host's factories return them.
HRESULT CreateStampFilter(IPrintPipelineFilter** filter);
