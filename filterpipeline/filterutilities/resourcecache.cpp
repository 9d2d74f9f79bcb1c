// resourcecache.cpp: write-once-per-job resources.
#include "filterpipeline/filterutilities/resourcecache.h"

#include <exception>

HRESULT CFileResourceCache::WriteResource(IXpsDocumentConsumer* consumer, IFixedPage* page,
                                          IResWriter* writer) {
    if (consumer == nullptr || page == nullptr || writer == nullptr) return E_POINTER;

    CComBSTR key;
    HRESULT hr = writer->GetKeyName(&key);
    if (FAILED(hr)) return hr;
    CComBSTR uri;
    hr = writer->GetResourceUri(&uri);
    if (FAILED(hr)) return hr;

    if (!Cached(key)) {
        hr = WriteNewPart(consumer, writer, key, uri);
        if (FAILED(hr)) return hr;
    }

    try {
        return page->SetPagePart(m_resources[key].part);
    } catch (const std::exception&) {
        return E_FAIL;
    }
}

HRESULT CFileResourceCache::WriteNewPart(IXpsDocumentConsumer* consumer, IResWriter* writer,
                                         const CComBSTR& key, const CComBSTR& uri) {
    CComPtr<IUnknown> newPart;
    CComPtr<IPrintWriteStream> stream;
    HRESULT hr = consumer->GetNewEmptyPart(uri, writer->GetPartInterfaceId(),
                                           reinterpret_cast<void**>(&newPart), &stream);
    if (FAILED(hr)) return hr;

    hr = writer->WriteData(newPart, stream);
    if (stream != nullptr) stream->Close();  // always closed; its own result does not count
    if (FAILED(hr)) return hr;

    CComPtr<IPartBase> part;
    hr = newPart->QueryInterface(IID_IPartBase, reinterpret_cast<void**>(&part));
    if (FAILED(hr)) return hr;
    try {
        Entry& entry = m_resources[key];
        entry.uri = uri;
        entry.part = part;
    } catch (const std::exception&) {
        return E_FAIL;
    }
    return S_OK;
}

HRESULT CFileResourceCache::GetURI(BSTR key, BSTR* uri) {
    if (uri == nullptr) return E_POINTER;
    if (SysStringLen(key) == 0) return E_INVALIDARG;
    const Entry* entry = nullptr;
    try {
        entry = &m_resources[CComBSTR(SysStringLen(key), key)];
    } catch (const std::exception&) {
        return E_FAIL;
    }
    if (entry->uri.Length() == 0) return E_FAIL;
    *uri = entry->uri.Copy();
    if (*uri == nullptr) AtlThrow(E_OUTOFMEMORY);
    return S_OK;
}

BOOL CFileResourceCache::Cached(BSTR key) {
    // A linear walk on purpose: a job holds a handful of distinct resources.
    CComBSTR wanted(static_cast<int>(SysStringLen(key)), key);
    for (const auto& [stored, entry] : m_resources) {
        if (VarBstrCmp(stored, wanted, LOCALE_USER_DEFAULT, 0) == VARCMP_EQ) return TRUE;
    }
    return FALSE;
}
