// resourcecopier.cpp: page-to-page resource sharing through the page's part iterator.
#include "filterpipeline/filterutilities/resourcecopier.h"

HRESULT CResourceCopier::CopyPageResources(const IFixedPage* from, IFixedPage* to) {
    if (from == nullptr) return E_POINTER;
    if (to == nullptr) return E_POINTER;

    CComPtr<IXpsPartIterator> parts;
    // The iterator interface is not const, though walking it does not change the page.
    HRESULT hr = const_cast<IFixedPage*>(from)->GetXpsPartIterator(&parts);
    if (FAILED(hr)) return hr;

    parts->Reset();
    while (!parts->IsDone() && SUCCEEDED(hr)) {
        CComBSTR uri;
        CComPtr<IUnknown> part;
        hr = parts->Current(&uri, &part);
        if (SUCCEEDED(hr)) {
            hr = to->SetPagePart(part);
            parts->Next();
        }
    }
    return hr;
}
