// prntvpt.h: the PrintTicket provider API of the Windows print system (PTOpenProvider,
// PTMergeAndValidatePrintTicket, ...) over a portable, lossless Print Schema merge, plus plain
// functions that merge tickets held in memory or in files. docs/ptprovider.md gives the rules.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/com/bstr.h"
#include "platform/com/unknown.h"
#include "platform/com/wintypes.h"

using PCWSTR = const wchar_t*;

// An open provider. Opaque: the value is a key into the provider table, never dereferenced, so a
// stale or made-up handle is detected rather than followed.
struct HPTPROVIDER__;
using HPTPROVIDER = HPTPROVIDER__*;

enum EPrintTicketScope { kPTPageScope = 0, kPTDocumentScope = 1, kPTJobScope = 2 };

// Success codes of PTMergeAndValidatePrintTicket.
inline constexpr HRESULT S_PT_NO_CONFLICT = static_cast<HRESULT>(0x00040001u);
inline constexpr HRESULT S_PT_CONFLICT_RESOLVED = static_cast<HRESULT>(0x00040002u);
// A base ticket (or any ticket but a delta) that is not a valid PrintTicket.
inline constexpr HRESULT E_PRINTTICKET_FORMAT = static_cast<HRESULT>(0x80040003u);
inline constexpr HRESULT E_PRINTCAPABILITIES_FORMAT = static_cast<HRESULT>(0x80040004u);
// A delta ticket that is not a valid PrintTicket.
inline constexpr HRESULT E_DELTA_PRINTTICKET_FORMAT = static_cast<HRESULT>(0x80040005u);
inline constexpr HRESULT E_PRINTDEVICECAPABILITIES_FORMAT = static_cast<HRESULT>(0x80040006u);

// The only Print Schema version there is.
inline constexpr DWORD PT_SCHEMA_VERSION = 1;

// Opens a provider for a printer (any non-empty name: there is no spooler to ask) at schema
// version `version`, which must be 1. The handle belongs to the calling thread.
// E_POINTER: null name or out pointer; HRESULT_FROM_WIN32(ERROR_INVALID_PRINTER_NAME): empty name;
// E_INVALIDARG: a version other than 1.
HRESULT PTOpenProvider(PCWSTR printerName, DWORD version, HPTPROVIDER* provider);

// As PTOpenProvider, negotiating the version: the provider uses min(preferredVersion, 1), written
// to *usedVersion. E_INVALIDARG when maxVersion or preferredVersion is 0 or preferredVersion
// exceeds maxVersion.
HRESULT PTOpenProviderEx(PCWSTR printerName, DWORD maxVersion, DWORD preferredVersion,
                         HPTPROVIDER* provider, DWORD* usedVersion);

// The highest schema version the provider supports for a printer (1).
HRESULT PTQuerySchemaVersionSupport(PCWSTR printerName, DWORD* maxVersion);

// Closes a provider. E_HANDLE for a handle that is not open (already closed, never opened),
// E_INVALIDARG for a handle opened on another thread (it stays open).
HRESULT PTCloseProvider(HPTPROVIDER provider);

// Merges `deltaTicket` (may be null: the base is only checked) onto `baseTicket` at `scope` and
// writes the result, UTF-8 XML with an XML declaration, to `resultTicket` from its current
// position. Both input streams are read from their start (they are rewound first). On success
// *errorMessage is null and the result is S_PT_NO_CONFLICT. A base that is not a PrintTicket
// gives E_PRINTTICKET_FORMAT, a delta E_DELTA_PRINTTICKET_FORMAT, each with *errorMessage saying
// why (free it with SysFreeString); nothing is written then. Other failures: E_POINTER (null
// base, result or errorMessage), E_HANDLE (provider not open), E_INVALIDARG (provider of another
// thread, scope outside 0-2), a failing stream's HRESULT, E_OUTOFMEMORY.
HRESULT PTMergeAndValidatePrintTicket(HPTPROVIDER provider, IStream* baseTicket,
                                      IStream* deltaTicket, EPrintTicketScope scope,
                                      IStream* resultTicket, BSTR* errorMessage);

// Frees a buffer that the provider allocated for the caller (CoTaskMemFree); null is allowed.
HRESULT PTReleaseMemory(PVOID buffer);

namespace platform {

// Largest ticket, in bytes, that the provider reads from a stream or file.
inline constexpr std::size_t kMaxPrintTicketBytes = 16u * 1024u * 1024u;

// "page", "document" or "job" (ASCII case ignored) to the scope; false for anything else.
bool ParsePrintTicketScope(std::string_view text, EPrintTicketScope* scope);
const char* PrintTicketScopeName(EPrintTicketScope scope);

// The merge of PTMergeAndValidatePrintTicket on bytes in memory: `delta` absent means no delta.
// Returns S_PT_NO_CONFLICT with the merged document in `merged`, or a failing HRESULT (the
// format codes above, E_INVALIDARG for a bad scope, E_OUTOFMEMORY) with `error` saying why.
HRESULT MergePrintTicketXml(std::string_view base, std::optional<std::string_view> delta,
                            EPrintTicketScope scope, std::string& merged, std::string& error);

// The same on two files (an empty deltaPath means no delta). A file that cannot be read gives
// HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND) or the errno-based failure with `error` naming it.
HRESULT MergePrintTicketFiles(const std::string& basePath, const std::string& deltaPath,
                              EPrintTicketScope scope, std::string& merged, std::string& error);

}  // namespace platform
