// printticketxmldocument_privatedata.cpp: the driver's private data carried by a PrintTicket as
// private-keyword ParameterInits: the CRC-framed job device mode "JobZorunDriverData", the page
// device mode snapshot "PageDevmodeSnapshot" and the maker's job ticket "JobZorunZjifJobTicket".
// See docs/privatedata.md for the formats.
#include <climits>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "filterpipeline/filterutilities/oemdevmode.h"
#include "filterpipeline/filterutilities/printticketxmldocument.h"
#include "support/errorframe/errorframe.h"
#include "support/utilities/crc32.h"
#include "support/utilities/zorunutilities.h"

namespace {

constexpr wchar_t kJobDriverData[] = L"JobZorunDriverData";
constexpr wchar_t kPageDevmodeSnapshot[] = L"PageDevmodeSnapshot";
constexpr wchar_t kZjifJobTicket[] = L"JobZorunZjifJobTicket";

// Base64 flag: one unbroken line.
constexpr unsigned long kBase64NoLineBreaks = ZorunUtilities::ATL_BASE64_FLAG_NOCRLF;

DWORD CrcOf(const BYTE* bytes, std::size_t length) {
    if (length == 0) return 0;
    return static_cast<DWORD>(
        Crc32::GetCrc(const_cast<BYTE*>(bytes), static_cast<unsigned long>(length)));
}

}  // namespace

HRESULT PrintTicketXmlDocument::SetJobZorunDriverDataInPrintTicket(DEVMODEW* devmode, DWORD size) {
    static constexpr wchar_t kMethod[] =
        L"PrintTicketXmlDocument::SetJobZorunDriverDataInPrintTicket";
    try {
        if (devmode == nullptr && size != 0) THROW_COM(E_POINTER, kMethod, "");
        // Base64 lengths are ints: a device mode is at most 64 KiB of public and private bytes.
        if (size > 0x7FFFFFFFu / 2) THROW_COM(E_INVALIDARG, kMethod, "");

        // The CRC of the device mode, little-endian, followed by the device mode as given.
        const BYTE* bytes = reinterpret_cast<const BYTE*>(devmode);
        std::vector<BYTE> framed(static_cast<std::size_t>(size) + 4);
        OemDevmode::WriteDword(framed.data(), CrcOf(bytes, size));
        if (size != 0) std::memcpy(framed.data() + 4, bytes, size);

        int framedLength = static_cast<int>(framed.size());
        int capacity =
            ZorunUtilities::Base64EncodeGetRequiredLength(framedLength, kBase64NoLineBreaks);
        std::vector<wchar_t> text(static_cast<std::size_t>(capacity) + 1, L'\0');
        int written = capacity;
        if (!ZorunUtilities::Base64Encode(framed.data(), framedLength, text.data(), &written,
                                          kBase64NoLineBreaks)) {
            return E_FAIL;
        }
        text[static_cast<std::size_t>(written)] = L'\0';

        DeleteParameterInitNodeIfExists(PrivateKeywordsPrefix(), kJobDriverData);
        CComPtr<IXMLDOMElement> parameterInit;
        CreateStringParameterInit(PrefixForWriting(PrintSchema::MsPrintTicketUserKeywordsNamespace),
                                  kJobDriverData, text.data(), &parameterInit);
        IXMLDOMNode* root = GetRootNode();
        if (root == nullptr) THROW_COM(E_PENDING, kMethod, "");
        CComPtr<IXMLDOMNode> appended;
        return root->appendChild(parameterInit, &appended);
    } catch (const ZorunComException& error) {
        return error.GetHresult();
    }
}

// The last base64 text this thread decoded successfully, as UTF-8, and its bytes. Page after
// page a job's tickets carry the same device mode text while the rest of the ticket changes;
// decoding is a function of the text alone, so an equal text gives the remembered bytes. A text
// that failed to decode is never remembered. Buffers grown past kKeptChars by an unusual ticket
// are let go after the call.
struct DecodedBase64 {
    static constexpr std::size_t kKeptChars = 64 * 1024;
    std::string text;
    ByteBuffer bytes;
    bool valid = false;

    static DecodedBase64& Current() {
        thread_local DecodedBase64 last;
        return last;
    }
    void Forget() {
        valid = false;
        if (text.capacity() > kKeptChars) std::string().swap(text);
        if (bytes.capacity() > kKeptChars) ByteBuffer().swap(bytes);
    }
};

// Reads the base64 Value of the private ParameterInit `name` into `out`; `out` stays empty when
// the ticket has no such ParameterInit. Text that is not base64 (a truncated text among them)
// empties `out` and throws E_FAIL.
static void ReadBase64ParameterInit(PrintTicketXmlDocument& ticket, const wchar_t* method,
                                    const wchar_t* prefix, const wchar_t* name, ByteBuffer& out) {
    out.clear();
    CComPtr<IXMLDOMNode> value;
    if (ticket.GetParameterInitValueNodeIfExists(prefix, name, &value) != S_OK || !value) return;

    // This library's DOM gives the text as it holds it (UTF-8): compared with the last decoded
    // text before anything is converted or decoded.
    DecodedBase64& last = DecodedBase64::Current();
    thread_local std::string utf8;
    const HRESULT readUtf8 = platform::DomNodeTextUtf8(value, utf8);
    if (readUtf8 == S_OK && last.valid && utf8 == last.text) {
        out = last.bytes;
        return;
    }
    if (readUtf8 != S_OK && readUtf8 != E_NOINTERFACE) THROW_COM(readUtf8, method, "");

    // The text goes into a buffer the thread keeps: a device mode's base64 is kilobytes, read
    // page after page. A node of another DOM is read through get_text. A buffer grown past
    // kKeptChars by an unusual ticket is let go after the call.
    constexpr std::size_t kKeptChars = DecodedBase64::kKeptChars;
    thread_local std::wstring buffer;
    struct ReleaseLarge {
        std::wstring& kept;
        std::string& keptUtf8;
        ~ReleaseLarge() {
            if (kept.capacity() > kKeptChars) std::wstring().swap(kept);
            if (keptUtf8.capacity() > kKeptChars) std::string().swap(keptUtf8);
        }
    } releaseLarge{buffer, utf8};
    CComBSTR foreign;
    const wchar_t* text = nullptr;
    int length = 0;
    const HRESULT read = platform::DomNodeText(value, buffer);
    if (read == E_NOINTERFACE) {
        THROW_COM_IF_FAILED(value->get_text(&foreign), method, "");
        text = foreign;
        length = static_cast<int>(foreign.Length());
    } else {
        THROW_COM_IF_FAILED(read, method, "");
        if (buffer.size() > static_cast<std::size_t>(INT_MAX)) THROW_COM(E_OUTOFMEMORY, method, "");
        text = buffer.c_str();
        length = static_cast<int>(buffer.size());
    }
    if (length == 0) return;
    out.resize(static_cast<std::size_t>(ZorunUtilities::Base64DecodeGetRequiredLength(length)));
    int decoded = static_cast<int>(out.size());
    if (!ZorunUtilities::Base64Decode(text, length, out.data(), &decoded)) {
        out.clear();
        THROW_COM(E_FAIL, method, "the %S text is not base64", name);
    }
    out.resize(static_cast<std::size_t>(decoded));
    // Remembered only for text read from this library's DOM, whose UTF-8 was compared above.
    last.Forget();
    if (readUtf8 == S_OK && utf8.size() <= kKeptChars && out.size() <= kKeptChars) {
        last.text = utf8;
        last.bytes = out;
        last.valid = true;
    }
}

void PrintTicketXmlDocument::GetJobZorunDriverDataFromPrintTicket(ByteBuffer& devmode) {
    static constexpr wchar_t kMethod[] =
        L"PrintTicketXmlDocument::GetJobZorunDriverDataFromPrintTicket";
    ReadBase64ParameterInit(*this, kMethod, PrivateKeywordsPrefix(), kJobDriverData, devmode);

    // A payload of four bytes or fewer carries no device mode and is left as decoded.
    if (devmode.size() > 4) {
        DWORD stored = OemDevmode::ReadDword(devmode.data());
        if (CrcOf(devmode.data() + 4, devmode.size() - 4) != stored) {
            devmode.clear();
            THROW_COM(E_FAIL, kMethod, "the CRC of JobZorunDriverData does not match");
        }
        devmode.erase(devmode.begin(), devmode.begin() + 4);
    }

    // A device mode that lost the end of its private area comes back at full length, the
    // missing bytes zero.
    if (devmode.size() > OemDevmode::kPublicDevmodeSize) {
        std::size_t dmSize = OemDevmode::ReadWord(devmode.data() + OemDevmode::kDmSizeOffset);
        std::size_t extra = OemDevmode::ReadWord(devmode.data() + OemDevmode::kDmDriverExtraOffset);
        if (dmSize >= OemDevmode::kPublicDevmodeSize && devmode.size() < dmSize + extra) {
            devmode.resize(dmSize + extra, 0);
        }
    }
}

void PrintTicketXmlDocument::GetPageDevmodeSnapshotFromPrintTicket(ByteBuffer& devmode) {
    ReadBase64ParameterInit(*this, L"PrintTicketXmlDocument::GetPageDevmodeSnapshotFromPrintTicket",
                            PrivateKeywordsPrefix(), kPageDevmodeSnapshot, devmode);
}

HRESULT PrintTicketXmlDocument::GetDevmodeFromPrintTicket(ByteBuffer& devmode) {
    try {
        GetPageDevmodeSnapshotFromPrintTicket(devmode);
        if (devmode.empty()) return S_FALSE;
        OemDevmode::Location found = OemDevmode::Find(devmode.data(), devmode.size());
        if (found.part == nullptr || !OemDevmode::IsCurrentVersion(found.part)) {
            devmode.clear();
            return E_FAIL;
        }
        return S_OK;
    } catch (const ZorunComException& error) {
        devmode.clear();
        return error.GetHresult();
    } catch (const CAtlException& error) {
        devmode.clear();
        return error.m_hr;
    } catch (const std::bad_alloc&) {
        devmode.clear();
        return E_OUTOFMEMORY;
    }
}

void PrintTicketXmlDocument::CreateZorunZjifParameterInit(ByteBuffer& zjifTicket) {
    static constexpr wchar_t kMethod[] = L"PrintTicketXmlDocument::CreateZorunZjifParameterInit";
    CXString ticketText = zjifTicket.getAsStringValueFromAnsiBuffer();
    CXString wrapped;
    wrapped.Format(L"<![CDATA[\n%s\n]]>", static_cast<const wchar_t*>(ticketText));

    CComPtr<IXMLDOMElement> parameterInit;
    CreateStringParameterInit(PrefixForWriting(PrintSchema::MsPrintTicketUserKeywordsNamespace),
                              kZjifJobTicket, wrapped, &parameterInit);

    IXMLDOMNode* root = GetRootNode();
    if (root == nullptr) THROW_COM(E_PENDING, kMethod, "");
    CComPtr<IXMLDOMNode> firstChild;
    THROW_COM_IF_FAILED(root->get_firstChild(&firstChild), kMethod, "");
    VARIANT before;
    VariantInit(&before);
    if (firstChild) {
        before.vt = VT_UNKNOWN;
        before.punkVal = firstChild;
    }
    CComPtr<IXMLDOMNode> inserted;
    THROW_COM_IF_FAILED(root->insertBefore(parameterInit, before, &inserted), kMethod, "");
}
