// reswriter.h: IResWriter, what a filter implements for each resource it wants written once per
// job through CFileResourceCache: the resource's key, its part URI, the kind of part and its bytes.
#pragma once

#include "platform/com/com.h"
#include "platform/printpipeline/filterpipeline.h"

class IResWriter {
public:
    virtual ~IResWriter() = default;

    // Writes the resource's bytes into the stream of the newly created part.
    virtual HRESULT WriteData(IUnknown* newPart, IPrintWriteStream* stream) = 0;
    // The key that identifies the resource within the job (a font's name, say); the cache frees it.
    virtual HRESULT GetKeyName(BSTR* key) = 0;
    // The package URI under which the part is written; the cache frees it.
    virtual HRESULT GetResourceUri(BSTR* uri) = 0;
    // The kind of part to create: IID_IPartFont, IID_IPartImage, IID_IPartColorProfile or
    // IID_IPartResourceDictionary.
    virtual REFIID GetPartInterfaceId() = 0;
};
