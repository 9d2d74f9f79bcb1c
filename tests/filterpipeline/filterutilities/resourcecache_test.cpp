// Tests of the resource cache (one part per key, linked to every page that needs it) and of the
// resource copier.
#include <gtest/gtest.h>

#include "filterpipeline/filterutilities/resourcecache.h"
#include "filterpipeline/filterutilities/resourcecopier.h"
#include "pipelinefakes.h"

using fakes::Make;

namespace {

class FontWriter : public IResWriter {
public:
    FontWriter(const wchar_t* key, const wchar_t* uri) : m_key(key), m_uri(uri) {}
    HRESULT WriteData(IUnknown*, IPrintWriteStream* stream) override {
        ++writes;
        if (FAILED(writeResult)) return writeResult;
        ULONG written = 0;
        return stream->WriteBytes("font-bytes", 10, &written);
    }
    HRESULT GetKeyName(BSTR* key) override { return CComBSTR(m_key).CopyTo(key); }
    HRESULT GetResourceUri(BSTR* uri) override { return CComBSTR(m_uri).CopyTo(uri); }
    REFIID GetPartInterfaceId() override { return IID_IPartFont; }

    int writes = 0;
    HRESULT writeResult = S_OK;

private:
    const wchar_t* m_key;
    const wchar_t* m_uri;
};

// Exposes the protected lookup.
class Cache : public CFileResourceCache {
public:
    using CFileResourceCache::Cached;
};

}  // namespace

TEST(ResourceCache, WritesOncePerKeyAndLinksEveryPage) {
    auto consumer = Make<fakes::Consumer>();
    auto first = Make<fakes::Page>();
    auto second = Make<fakes::Page>();
    FontWriter writer(L"arial", L"/Resources/Fonts/a.ttf");
    Cache cache;
    EXPECT_EQ(cache.WriteResource(consumer, first, &writer), S_OK);
    EXPECT_EQ(cache.WriteResource(consumer, second, &writer), S_OK);
    Cache copy(cache);  // copies share the cached parts
    EXPECT_EQ(copy.WriteResource(consumer, second, &writer), S_OK);
    EXPECT_EQ(consumer->newPartCalls, 1);
    EXPECT_EQ(writer.writes, 1);
    ASSERT_EQ(first->resources.size(), 1u);
    ASSERT_EQ(second->resources.size(), 2u);
    EXPECT_TRUE(CComPtr<IUnknown>(first->resources[0]).IsEqualObject(second->resources[1]));
    EXPECT_EQ(consumer->newStreams[0]->bytes, "font-bytes");
    EXPECT_TRUE(consumer->newStreams[0]->closed);
    CComBSTR uri;
    EXPECT_EQ(cache.GetURI(CComBSTR(L"arial"), &uri), S_OK);
    EXPECT_STREQ(uri, L"/Resources/Fonts/a.ttf");

    // Keys differing in case are distinct.
    FontWriter upper(L"Arial", L"/Resources/A.ttf");
    EXPECT_EQ(cache.WriteResource(consumer, first, &upper), S_OK);
    EXPECT_EQ(consumer->newPartCalls, 2);
    EXPECT_TRUE(cache.Cached(CComBSTR(L"Arial")));
    EXPECT_FALSE(cache.Cached(CComBSTR(L"ARIAL")));
}

TEST(ResourceCache, FailuresCacheNothingAndLinkNothing) {
    auto consumer = Make<fakes::Consumer>();
    auto page = Make<fakes::Page>();
    FontWriter writer(L"key", L"/Resources/f.ttf");
    Cache cache;
    EXPECT_EQ(cache.WriteResource(nullptr, page, &writer), E_POINTER);
    EXPECT_EQ(cache.WriteResource(consumer, nullptr, &writer), E_POINTER);
    EXPECT_EQ(cache.WriteResource(consumer, page, nullptr), E_POINTER);
    consumer->refuseNewParts = true;
    EXPECT_EQ(cache.WriteResource(consumer, page, &writer), E_ACCESSDENIED);
    EXPECT_EQ(writer.writes, 0);

    // A failed write closes the stream, caches nothing and is retried by the next page.
    consumer->refuseNewParts = false;
    writer.writeResult = E_ACCESSDENIED;
    EXPECT_EQ(cache.WriteResource(consumer, page, &writer), E_ACCESSDENIED);
    EXPECT_TRUE(consumer->newStreams[0]->closed);
    EXPECT_FALSE(cache.Cached(CComBSTR(L"key")));
    EXPECT_TRUE(page->resources.empty());
    writer.writeResult = S_OK;
    EXPECT_EQ(cache.WriteResource(consumer, page, &writer), S_OK);
    EXPECT_EQ(consumer->newPartCalls, 3);
    EXPECT_EQ(page->resources.size(), 1u);

    // The URI of an unknown key leaves an empty entry.
    CComBSTR uri;
    EXPECT_EQ(cache.GetURI(CComBSTR(L"never written"), &uri), E_FAIL);
    EXPECT_TRUE(cache.Cached(CComBSTR(L"never written")));
    EXPECT_EQ(cache.GetURI(nullptr, &uri), E_INVALIDARG);
    EXPECT_EQ(cache.GetURI(CComBSTR(L""), &uri), E_INVALIDARG);
    EXPECT_EQ(cache.GetURI(CComBSTR(L"x"), nullptr), E_POINTER);
}

TEST(ResourceCopier, AttachesEveryResourceOfTheSourcePage) {
    auto from = Make<fakes::Page>();
    auto to = Make<fakes::Page>();
    CResourceCopier copier;
    EXPECT_EQ(copier.CopyPageResources(from, to), S_OK);  // no resources: nothing happens
    EXPECT_TRUE(to->resources.empty());
    CComPtr<IUnknown> font;
    font.Attach(static_cast<IPartFont*>(new fakes::FontPart(L"/a.ttf", "")));
    CComPtr<IUnknown> image;
    image.Attach(static_cast<IPartImage*>(new fakes::ImagePart(L"/b.png", "")));
    from->resources = {font, image};
    EXPECT_EQ(copier.CopyPageResources(from, to), S_OK);
    EXPECT_EQ(to->resources, from->resources);
    to->failSetPagePart = true;
    EXPECT_EQ(copier.CopyPageResources(from, to), E_ACCESSDENIED);
    EXPECT_EQ(copier.CopyPageResources(nullptr, to), E_POINTER);
    EXPECT_EQ(copier.CopyPageResources(from, nullptr), E_POINTER);
}
