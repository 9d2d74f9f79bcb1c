// resourcecache.h: CFileResourceCache, the per-job record of resource parts already written.
// The first page that needs a resource writes its part through the consumer; every later page,
// in any document, is only linked to the same part.
#pragma once

#include <map>

#include "filterpipeline/filterutilities/reswriter.h"
#include "platform/com/com.h"
#include "platform/printpipeline/filterpipeline.h"

class CFileResourceCache {
public:
    CFileResourceCache() = default;
    CFileResourceCache(const CFileResourceCache&) = default;
    CFileResourceCache& operator=(const CFileResourceCache&) = default;
    virtual ~CFileResourceCache() = default;

    // Writes the writer's part once per key, then makes it a resource of the page.
    HRESULT WriteResource(IXpsDocumentConsumer* consumer, IFixedPage* page, IResWriter* writer);

    // The URI stored for a key. An unknown key gets an empty entry (so Cached reports it from
    // then on) and E_FAIL; an empty key is E_INVALIDARG.
    HRESULT GetURI(BSTR key, BSTR* uri);

protected:
    BOOL Cached(BSTR key);

private:
    struct Entry {
        CComBSTR uri;
        CComPtr<IPartBase> part;
    };
    // Keys compare with VarBstrCmp in the user-default locale: case-sensitive.
    struct KeyLess {
        bool operator()(const CComBSTR& a, const CComBSTR& b) const {
            return VarBstrCmp(a, b, LOCALE_USER_DEFAULT, 0) == VARCMP_LT;
        }
    };

    HRESULT WriteNewPart(IXpsDocumentConsumer* consumer, IResWriter* writer, const CComBSTR& key,
                         const CComBSTR& uri);

    std::map<CComBSTR, Entry, KeyLess> m_resources;
};
