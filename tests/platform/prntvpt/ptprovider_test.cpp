// Tests of the PrintTicket provider API: handles, versions, argument checks, the stream contract
// of PTMergeAndValidatePrintTicket and the file helper; and every real-world ticket of the corpus
// merged onto every other at each scope, checked with an independent reader.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "platform/com/com.h"
#include "platform/com/comobject.h"
#include "platform/com/unicode.h"
#include "platform/prntvpt/prntvpt.h"
#include "platform/prntvpt/ticketcheck.h"

namespace {

const std::string kTicketDir = std::string(FU_CORPUS_DIR) + "/tickets/";

// A ticket with one PageOrientation option; a merge's output has the declaration and the root
// on lines of their own.
std::string Orientation(const std::string& option, const std::string& declaration = "") {
    return declaration +
           R"(<psf:PrintTicket xmlns:psf="http://schemas.microsoft.com/windows/2003/08/printing/)"
           R"(printschemaframework" xmlns:psk="http://schemas.microsoft.com/windows/2003/08/)"
           R"(printing/printschemakeywords" version="1"><psf:Feature name="psk:PageOrientation">)"
           R"(<psf:Option name="psk:)" +
           option + R"("/></psf:Feature></psf:PrintTicket>)" + (declaration.empty() ? "" : "\n");
}
const std::string kDeclaration = R"(<?xml version="1.0" encoding="UTF-8"?>)";
const std::string kBase = kDeclaration + Orientation("Portrait");
const std::string kDelta = Orientation("Landscape");

CComPtr<IStream> StreamOf(const std::string& bytes) {
    CComPtr<IStream> stream;
    EXPECT_EQ(platform::CreateMemoryStream(bytes.data(), bytes.size(), &stream), S_OK);
    return stream;
}

std::string Contents(IStream* stream) {
    LARGE_INTEGER zero{};
    stream->Seek(zero, STREAM_SEEK_SET, nullptr);
    std::string bytes;
    char buffer[4096];
    ULONG got = 0;
    while (SUCCEEDED(stream->Read(buffer, sizeof buffer, &got)) && got != 0)
        bytes.append(buffer, got);
    return bytes;
}

ULONGLONG Position(IStream* stream) {
    LARGE_INTEGER zero{};
    ULARGE_INTEGER now{};
    stream->Seek(zero, STREAM_SEEK_CUR, &now);
    return now.QuadPart;
}

// A stream whose reads fail, or that cannot seek, to check how failures travel.
class AwkwardStream final : public platform::ComObject<IStream> {
public:
    AwkwardStream(std::string bytes, HRESULT readResult, bool canSeek)
        : bytes_(std::move(bytes)), readResult_(readResult), canSeek_(canSeek) {}
    HRESULT Read(void* buffer, ULONG count, ULONG* read) override {
        if (FAILED(readResult_)) return readResult_;
        ULONG n = static_cast<ULONG>(std::min<std::size_t>(count, bytes_.size() - position_));
        std::memcpy(buffer, bytes_.data() + position_, n);
        position_ += n;
        *read = n;
        return n < count ? S_FALSE : S_OK;
    }
    HRESULT Write(const void*, ULONG, ULONG*) override { return STG_E_WRITEFAULT; }
    HRESULT Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER*) override {
        if (!canSeek_) return E_NOTIMPL;
        if (origin == STREAM_SEEK_SET) position_ = static_cast<std::size_t>(move.QuadPart);
        return S_OK;
    }
    HRESULT SetSize(ULARGE_INTEGER) override { return E_NOTIMPL; }
    HRESULT CopyTo(IStream*, ULARGE_INTEGER, ULARGE_INTEGER*, ULARGE_INTEGER*) override {
        return E_NOTIMPL;
    }
    HRESULT Commit(DWORD) override { return E_NOTIMPL; }
    HRESULT Revert() override { return E_NOTIMPL; }
    HRESULT LockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override { return E_NOTIMPL; }
    HRESULT UnlockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override { return E_NOTIMPL; }
    HRESULT Stat(STATSTG*, DWORD) override { return E_NOTIMPL; }
    HRESULT Clone(IStream**) override { return E_NOTIMPL; }

    std::size_t position_ = 0;

private:
    std::string bytes_;
    HRESULT readResult_;
    bool canSeek_;
};

class Provider : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(PTOpenProvider(L"Test Printer", 1, &provider_), S_OK);
        ASSERT_EQ(CreateStreamOnHGlobal(nullptr, TRUE, &result), S_OK);
    }
    void TearDown() override {
        if (provider_ != nullptr) PTCloseProvider(provider_);
    }

    HRESULT Merge(IStream* base, IStream* delta, EPrintTicketScope scope, IStream* result,
                  std::wstring* text = nullptr) {
        BSTR error = reinterpret_cast<BSTR>(0x1);
        HRESULT hr = PTMergeAndValidatePrintTicket(provider_, base, delta, scope, result, &error);
        if (text != nullptr) *text = error != nullptr ? std::wstring(error) : L"";
        EXPECT_TRUE(FAILED(hr) || error == nullptr);
        // A ticket that is refused is explained.
        EXPECT_TRUE((hr != E_PRINTTICKET_FORMAT && hr != E_DELTA_PRINTTICKET_FORMAT) ||
                    error != nullptr);
        if (error != reinterpret_cast<BSTR>(0x1)) SysFreeString(error);
        return hr;
    }

    HPTPROVIDER provider_ = nullptr;
    CComPtr<IStream> result;
};

TEST(PrintTicketProviderHandles, OpenCheckArgumentsAndVersion) {
    HPTPROVIDER provider = reinterpret_cast<HPTPROVIDER>(0x10);
    EXPECT_EQ(PTOpenProvider(nullptr, 1, &provider), E_POINTER);
    EXPECT_EQ(provider, nullptr);
    EXPECT_EQ(PTOpenProvider(L"", 1, &provider), HRESULT_FROM_WIN32(ERROR_INVALID_PRINTER_NAME));
    EXPECT_EQ(PTOpenProvider(L"P", 0, &provider), E_INVALIDARG);
    EXPECT_EQ(PTOpenProvider(L"P", 2, &provider), E_INVALIDARG);
    EXPECT_EQ(provider, nullptr);
    EXPECT_EQ(PTOpenProvider(L"P", 1, nullptr), E_POINTER);

    ASSERT_EQ(PTOpenProvider(L"\\\\server\\Any printer name at all", 1, &provider), S_OK);
    EXPECT_NE(provider, nullptr);
    HPTPROVIDER second = nullptr;
    ASSERT_EQ(PTOpenProvider(L"P", 1, &second), S_OK);
    EXPECT_NE(second, provider) << "every open gives its own handle";
    EXPECT_EQ(PTCloseProvider(second), S_OK);
    EXPECT_EQ(PTCloseProvider(provider), S_OK);
    EXPECT_EQ(PTReleaseMemory(nullptr), S_OK);
    EXPECT_EQ(PTReleaseMemory(CoTaskMemAlloc(64)), S_OK);
}

TEST(PrintTicketProviderHandles, OpenExNegotiatesTheVersion) {
    HPTPROVIDER provider = nullptr;
    DWORD used = 99;
    ASSERT_EQ(PTOpenProviderEx(L"P", 5, 3, &provider, &used), S_OK);
    EXPECT_EQ(used, 1u);
    EXPECT_EQ(PTCloseProvider(provider), S_OK);
    ASSERT_EQ(PTOpenProviderEx(L"P", 1, 1, &provider, &used), S_OK);
    EXPECT_EQ(used, 1u);
    EXPECT_EQ(PTCloseProvider(provider), S_OK);

    EXPECT_EQ(PTOpenProviderEx(L"P", 1, 0, &provider, &used), E_INVALIDARG);
    EXPECT_EQ(PTOpenProviderEx(L"P", 0, 0, &provider, &used), E_INVALIDARG);
    EXPECT_EQ(PTOpenProviderEx(L"P", 1, 2, &provider, &used), E_INVALIDARG);
    EXPECT_EQ(provider, nullptr);
    EXPECT_EQ(used, 0u);
    EXPECT_EQ(PTOpenProviderEx(L"P", 1, 1, nullptr, &used), E_POINTER);
    EXPECT_EQ(PTOpenProviderEx(L"P", 1, 1, &provider, nullptr), E_POINTER);
    EXPECT_EQ(PTOpenProviderEx(L"", 1, 1, &provider, &used),
              HRESULT_FROM_WIN32(ERROR_INVALID_PRINTER_NAME));

    DWORD max = 0;
    EXPECT_EQ(PTQuerySchemaVersionSupport(L"P", &max), S_OK);
    EXPECT_EQ(max, 1u);
    EXPECT_EQ(PTQuerySchemaVersionSupport(L"P", nullptr), E_POINTER);
    EXPECT_EQ(PTQuerySchemaVersionSupport(nullptr, &max), E_POINTER);
}

TEST_F(Provider, ClosedAndBogusHandlesAreRefusedEverywhere) {
    auto base = StreamOf(kBase);
    BSTR error = nullptr;

    ASSERT_EQ(PTCloseProvider(provider_), S_OK);
    EXPECT_EQ(PTCloseProvider(provider_), E_HANDLE) << "closing twice is safe";
    EXPECT_EQ(PTMergeAndValidatePrintTicket(provider_, base, nullptr, kPTJobScope, result, &error),
              E_HANDLE);
    EXPECT_EQ(error, nullptr);
    provider_ = nullptr;

    for (HPTPROVIDER bogus : {static_cast<HPTPROVIDER>(nullptr), reinterpret_cast<HPTPROVIDER>(1),
                              reinterpret_cast<HPTPROVIDER>(&error),
                              reinterpret_cast<HPTPROVIDER>(~std::uintptr_t{0})}) {
        EXPECT_EQ(PTCloseProvider(bogus), E_HANDLE);
        EXPECT_EQ(PTMergeAndValidatePrintTicket(bogus, base, nullptr, kPTJobScope, result, &error),
                  E_HANDLE);
    }
    EXPECT_EQ(Contents(result), "");
}

TEST_F(Provider, HandleBelongsToTheThreadThatOpenedIt) {
    auto base = StreamOf(kBase);
    std::thread([&] {
        BSTR error = nullptr;
        EXPECT_EQ(
            PTMergeAndValidatePrintTicket(provider_, base, nullptr, kPTJobScope, result, &error),
            E_INVALIDARG);
        EXPECT_EQ(PTCloseProvider(provider_), E_INVALIDARG);
    }).join();
    EXPECT_EQ(Merge(base, nullptr, kPTJobScope, result), S_PT_NO_CONFLICT)
        << "the handle is still open for its own thread";
}

TEST_F(Provider, MergeReadsInputsFromTheirStartAndAppendsAtTheResultPosition) {
    auto base = StreamOf(kBase);
    auto delta = StreamOf(kDelta);
    LARGE_INTEGER zero{};
    base->Seek(zero, STREAM_SEEK_END, nullptr);  // as a document stream left after a read
    delta->Seek(zero, STREAM_SEEK_END, nullptr);
    ULONG written = 0;
    ASSERT_EQ(result->Write("KEEP", 4, &written), S_OK);

    ASSERT_EQ(Merge(base, delta, kPTPageScope, result), S_PT_NO_CONFLICT);
    const ULONGLONG end = Position(result);
    const std::string all = Contents(result);
    EXPECT_EQ(end, all.size()) << "the result stream is left at the end of the ticket";
    EXPECT_EQ(all, "KEEP" + Orientation("Landscape", kDeclaration + "\n"));
}

TEST_F(Provider, NullArgumentsAndBadScope) {
    auto base = StreamOf(kBase);
    auto delta = StreamOf(kDelta);
    EXPECT_EQ(Merge(nullptr, delta, kPTJobScope, result), E_POINTER);
    EXPECT_EQ(Merge(base, delta, kPTJobScope, nullptr), E_POINTER);
    EXPECT_EQ(PTMergeAndValidatePrintTicket(provider_, base, delta, kPTJobScope, result, nullptr),
              E_POINTER);
    std::wstring text;
    EXPECT_EQ(Merge(base, delta, static_cast<EPrintTicketScope>(3), result, &text), E_INVALIDARG);
    EXPECT_NE(text.find(L"scope"), std::wstring::npos);
    EXPECT_EQ(Merge(base, delta, static_cast<EPrintTicketScope>(-1), result), E_INVALIDARG);
    EXPECT_EQ(Contents(result), "") << "nothing is written on failure";

    // A null delta only checks the base, which comes back whole.
    ASSERT_EQ(Merge(base, nullptr, kPTPageScope, result), S_PT_NO_CONFLICT);
    EXPECT_EQ(Contents(result), Orientation("Portrait", kDeclaration + "\n"));
}

TEST_F(Provider, TicketsThatAreNotPrintTicketsGiveTheFormatCodesAndSayWhy) {
    struct Case {
        std::string bytes;
        const wchar_t* words;
    };
    const Case cases[] = {
        {"", L"empty"},
        {"<psf:PrintTicket", L"not well-formed"},
        {"<a><b></a>", L"not well-formed"},
        {"<undeclared:PrintTicket/>", L"namespace"},
        {R"(<PrintTicket version="1"/>)", L"root element is PrintTicket,"},
        {R"(<psf:PrintCapabilities xmlns:psf="http://schemas.microsoft.com/windows/2003/08/printing/printschemaframework"/>)",
         L"PrintCapabilities"},
        {R"(<!DOCTYPE psf:PrintTicket [<!ENTITY a "aaaa">]><psf:PrintTicket xmlns:psf="http://schemas.microsoft.com/windows/2003/08/printing/printschemaframework">&a;</psf:PrintTicket>)",
         L"DOCTYPE"},
    };
    for (const Case& c : cases) {
        auto good = StreamOf(kBase);
        auto bad = StreamOf(c.bytes);
        std::wstring text;
        EXPECT_EQ(Merge(bad, good, kPTJobScope, result, &text), E_PRINTTICKET_FORMAT) << c.bytes;
        EXPECT_NE(text.find(L"base ticket"), std::wstring::npos) << platform::WideToUtf8(text);
        EXPECT_NE(text.find(c.words), std::wstring::npos) << platform::WideToUtf8(text);
        EXPECT_EQ(Merge(good, bad, kPTJobScope, result, &text), E_DELTA_PRINTTICKET_FORMAT);
        EXPECT_NE(text.find(L"delta ticket"), std::wstring::npos) << platform::WideToUtf8(text);
        EXPECT_NE(text.find(c.words), std::wstring::npos) << platform::WideToUtf8(text);
    }
    EXPECT_EQ(Contents(result), "") << "nothing is written on failure";
}

TEST_F(Provider, FailingAndUnseekableStreams) {
    CComPtr<IStream> failing;
    failing.Attach(new AwkwardStream(kBase, STG_E_READFAULT, true));
    std::wstring text;
    EXPECT_EQ(Merge(failing, nullptr, kPTJobScope, result, &text), STG_E_READFAULT);
    EXPECT_NE(text.find(L"base"), std::wstring::npos);
    auto good = StreamOf(kBase);
    EXPECT_EQ(Merge(good, failing, kPTJobScope, result, &text), STG_E_READFAULT);
    EXPECT_NE(text.find(L"delta"), std::wstring::npos);

    // A stream that cannot seek is read from where it stands.
    auto* raw = new AwkwardStream(std::string("JUNK") + kBase, S_OK, false);
    raw->position_ = 4;
    CComPtr<IStream> unseekable;
    unseekable.Attach(raw);
    EXPECT_EQ(Merge(unseekable, nullptr, kPTJobScope, result), S_PT_NO_CONFLICT);

    // A result stream that refuses writes reports it.
    CComPtr<IStream> readOnly;
    readOnly.Attach(new AwkwardStream("", S_OK, true));
    EXPECT_EQ(Merge(good, nullptr, kPTJobScope, readOnly), STG_E_WRITEFAULT);
}

TEST_F(Provider, OversizedTicketIsRefusedWithoutReadingItAll) {
    std::string huge = kBase;
    huge.insert(huge.size() - std::string("</psf:PrintTicket>").size(),
                std::string(platform::kMaxPrintTicketBytes + 1024 * 1024, ' '));
    auto big = StreamOf(huge);
    auto good = StreamOf(kBase);
    std::wstring text;
    EXPECT_EQ(Merge(big, good, kPTJobScope, result, &text), E_PRINTTICKET_FORMAT);
    EXPECT_NE(text.find(L"limit"), std::wstring::npos);
    EXPECT_EQ(Merge(good, big, kPTJobScope, result, &text), E_DELTA_PRINTTICKET_FORMAT);
    EXPECT_LT(Position(big), huge.size()) << "reading stops at the limit";
}

TEST(PrintTicketFiles, MergesTwoFilesAndNamesMissingOnes) {
    std::string merged;
    std::string error;
    const std::string job = kTicketDir + "winprintrs_test_document.xps__Metadata_Job_PT.xml";
    const std::string page = kTicketDir + "wpftest_word.xps__Documents_1_Metadata_Page1_PT.xml";
    ASSERT_EQ(platform::MergePrintTicketFiles(job, page, kPTPageScope, merged, error),
              S_PT_NO_CONFLICT)
        << error;
    EXPECT_TRUE(error.empty());
    auto doc = ticketcheck::ParseStrict(merged);
    ASSERT_NE(doc, nullptr);
    auto items = ticketcheck::ItemSignatures(doc.get());
    const std::string media = std::string("Feature{") +
                              "http://schemas.microsoft.com/windows/2003/08/printing/"
                              "printschemakeywords}PageMediaSize";
    ASSERT_TRUE(items.count(media));
    EXPECT_NE(items[media].find("NorthAmericaLetter"), std::string::npos);

    EXPECT_EQ(platform::MergePrintTicketFiles(job, "", kPTJobScope, merged, error),
              S_PT_NO_CONFLICT);
    EXPECT_EQ(platform::MergePrintTicketFiles(kTicketDir + "no-such-ticket.xml", page, kPTJobScope,
                                              merged, error),
              HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND));
    EXPECT_NE(error.find("no-such-ticket.xml"), std::string::npos);
    EXPECT_NE(error.find("base"), std::string::npos);
    EXPECT_EQ(platform::MergePrintTicketFiles(job, kTicketDir + "missing-delta.xml", kPTJobScope,
                                              merged, error),
              HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND));
    EXPECT_NE(error.find("delta"), std::string::npos);
    EXPECT_EQ(platform::MergePrintTicketFiles(job, kTicketDir, kPTJobScope, merged, error),
              STG_E_READFAULT)
        << "a directory is not a ticket file";
}

struct CorpusTicket {
    std::string name;
    std::string bytes;
    ticketcheck::Doc doc;
};

std::vector<CorpusTicket> LoadCorpus() {
    std::vector<CorpusTicket> tickets;
    for (const auto& entry :
         std::filesystem::directory_iterator(std::string(FU_CORPUS_DIR) + "/tickets")) {
        if (entry.path().extension() != ".xml") continue;
        CorpusTicket ticket;
        ticket.name = entry.path().filename().string();
        ticket.bytes = ticketcheck::ReadFile(entry.path().string());
        ticket.doc = ticketcheck::ParseStrict(ticket.bytes);
        tickets.push_back(std::move(ticket));
    }
    std::sort(tickets.begin(), tickets.end(),
              [](const auto& a, const auto& b) { return a.name < b.name; });
    return tickets;
}

bool InScope(const std::string& local, EPrintTicketScope scope) {
    if (scope == kPTJobScope) return true;
    if (local.rfind("Page", 0) == 0) return true;
    return scope == kPTDocumentScope && local.rfind("Document", 0) == 0;
}

// Merges every real-world ticket of the corpus onto every other at each scope, through the
// provider API: the result is well-formed with namespaces, every base item is kept unless an
// in-scope delta item of the same expanded name replaced it, every in-scope delta item is present
// as the delta has it, and nothing out of scope is taken from the delta.
TEST(CorpusTicketMerge, EveryTicketOntoEveryOtherAtEveryScope) {
    const std::vector<CorpusTicket> corpus = LoadCorpus();
    ASSERT_GE(corpus.size(), 10u) << "the corpus tickets are missing";
    for (const auto& ticket : corpus) ASSERT_NE(ticket.doc, nullptr) << ticket.name;

    HPTPROVIDER provider = nullptr;
    ASSERT_EQ(PTOpenProvider(L"Corpus Printer", 1, &provider), S_OK);
    int merges = 0;
    int replaced = 0;
    int renamedPrefixes = 0;
    for (const auto& base : corpus) {
        const auto baseItems = ticketcheck::ItemSignatures(base.doc.get());
        for (const auto& delta : corpus) {
            const auto deltaItems = ticketcheck::ItemSignatures(delta.doc.get());
            for (EPrintTicketScope scope : {kPTPageScope, kPTDocumentScope, kPTJobScope}) {
                SCOPED_TRACE(base.name + " <- " + delta.name + " at " +
                             platform::PrintTicketScopeName(scope));
                auto baseStream = StreamOf(base.bytes);
                auto deltaStream = StreamOf(delta.bytes);
                CComPtr<IStream> result;
                ASSERT_EQ(CreateStreamOnHGlobal(nullptr, TRUE, &result), S_OK);
                BSTR error = nullptr;
                ASSERT_EQ(PTMergeAndValidatePrintTicket(provider, baseStream, deltaStream, scope,
                                                        result, &error),
                          S_PT_NO_CONFLICT);
                ASSERT_EQ(error, nullptr);
                ++merges;

                const std::string xml = Contents(result);
                std::string problem;
                auto merged = ticketcheck::ParseStrict(xml, &problem);
                ASSERT_NE(merged, nullptr) << problem << "\n" << xml;
                std::string bad;
                EXPECT_TRUE(ticketcheck::AllQNamesResolve(xmlDocGetRootElement(merged.get()), &bad))
                    << bad;
                if (xml.find("xmlns:ns0000_1=") != std::string::npos) ++renamedPrefixes;
                const auto items = ticketcheck::ItemSignatures(merged.get());

                // In-scope delta items win, whatever prefixes either ticket used.
                std::size_t expected = baseItems.size();
                for (const auto& [key, signature] : deltaItems) {
                    const std::string local = key.substr(key.find('}') + 1);
                    const bool inBase = baseItems.count(key) != 0;
                    if (InScope(local, scope)) {
                        ASSERT_TRUE(items.count(key)) << key;
                        EXPECT_EQ(items.at(key), signature) << key;
                        if (inBase) ++replaced;
                        if (!inBase) ++expected;
                    } else if (!inBase) {
                        EXPECT_EQ(items.count(key), 0u) << "out of scope, yet taken: " << key;
                    }
                }
                // Everything else of the base, private features included, is kept as it was.
                for (const auto& [key, signature] : baseItems) {
                    ASSERT_TRUE(items.count(key)) << "lost " << key;
                    const std::string local = key.substr(key.find('}') + 1);
                    if (!(deltaItems.count(key) && InScope(local, scope))) {
                        EXPECT_EQ(items.at(key), signature) << key;
                    }
                }
                EXPECT_EQ(items.size(), expected);
                EXPECT_EQ(ticketcheck::RootItems(merged.get()).size(), items.size())
                    << "no item appears twice";
            }
        }
    }
    EXPECT_EQ(PTCloseProvider(provider), S_OK);
    EXPECT_EQ(merges, static_cast<int>(corpus.size() * corpus.size() * 3));
    EXPECT_GT(replaced, 0) << "the corpus exercises replacement";
    EXPECT_GT(renamedPrefixes, 0) << "the corpus binds ns0000 to two namespaces";
}

TEST(PrintTicketScopes, ParseAndName) {
    EPrintTicketScope scope = kPTJobScope;
    for (auto [text, expected] :
         {std::pair{"page", kPTPageScope}, {"Document", kPTDocumentScope}, {"JOB", kPTJobScope}}) {
        EXPECT_TRUE(platform::ParsePrintTicketScope(text, &scope));
        EXPECT_EQ(scope, expected) << text;
    }
    EXPECT_FALSE(platform::ParsePrintTicketScope("pages", &scope));
    EXPECT_FALSE(platform::ParsePrintTicketScope("", &scope));
    EXPECT_FALSE(platform::ParsePrintTicketScope("job", nullptr));
    EXPECT_STREQ(platform::PrintTicketScopeName(kPTDocumentScope), "document");
}

}  // namespace
