// pagemediasizeptpchelper.h: PageMediaSizePtPcHelper, the bridge between the printer driver's
// own form list (DeviceCapabilitiesW index 65525) and a PrintTicket's PageMediaSize feature:
// fetching and filtering the forms, finding the form of a size, naming it as a PageMediaSize
// option and rewriting the ticket's PageMediaSize with it. docs/mediasize.md has the rules.
#pragma once

#include <vector>

#include "filterpipeline/filterutilities/printschema.h"
#include "platform/com/wintypes.h"
#include "platform/win32/printers.h"
#include "support/utilities/cxstring.h"
#include "support/utilities/datamodelids.h"

class PageSizeDictionary;
class PrintTicketXmlDocument;

class PageMediaSizePtPcHelper {
public:
    using FormsInfoRec = MSDeviceCapabilities::_tag_FormsInfoRec;
    using FormsInfoList = std::vector<FormsInfoRec>;

    // All operations are static; an object holds nothing.
    PageMediaSizePtPcHelper();
    ~PageMediaSizePtPcHelper();

    // The driver's form list of the printer, as DeviceCapabilitiesW(65525) reports it. Empty
    // unless the calling thread impersonates a user. A negative count from the driver counts as
    // none.
    static FormsInfoList GetPaperInfoForAnXpsFilter(CXString& printerName);
    // The filtered form list, fetched while the calling thread impersonates `token`.
    static FormsInfoList GetFilteredPaperInfoForAnXpsFilter(CXString& printerName, HANDLE token);
    // The forms a PrintTicket can name: every predefined form and the custom-size entry, then the
    // standard, user and driver custom forms whose size is not yet listed (in that order); forms
    // known to the dictionary and forms of other kinds are dropped. Input order is kept within
    // each pass.
    static FormsInfoList FilterPaperSizeListForPrintTicket(const FormsInfoList& forms);
    // The form of a size given in microns, compared in whole tenths of a millimetre (truncated,
    // low 16 bits): S_OK with the first form of that size whose value is `value` (any, for
    // ValueAny), else the first form of that size. Without one: S_FALSE, and `found` holds the
    // custom-size entry resized to the request when the list has one (it is untouched when not).
    // A null `found` gives E_POINTER.
    static HRESULT FindFormInfoRect(const FormsInfoList& forms, int widthMicrons, int heightMicrons,
                                    DataModelIds::tagValueEnum value, FormsInfoRec* found);
    // The PageMediaSize option name of a form and its namespace (keywords or private keywords).
    // Custom: PSCustomMediaSize / CustomMediaSize. User forms: UserForm_<paper id>_<w>x<h>,
    // driver custom sizes DriverCustomSize_<paper id>_<w>x<h> (private). Predefined, standard and
    // dictionary forms: the dictionary's name of the entry of that size and value (unchanged
    // when there is none). Throws E_POINTER for null outputs, E_FAIL for other kinds.
    static void GetMsPageMediaSizeOptionName(
        bool isCustom, bool isPostScript, PageSizeDictionary& dictionary, const FormsInfoRec& form,
        CXString* optionName, PrintSchema::MsPrintTicketNamespacesEnum* optionNamespace);
    // The same with a dictionary of its own (opens the core library on first use).
    static void GetMsPageMediaSizeOptionName(
        bool isCustom, bool isPostScript, const FormsInfoRec& form, CXString* optionName,
        PrintSchema::MsPrintTicketNamespacesEnum* optionNamespace);
    // Deletes the ticket's PageMediaSize feature and the seven PageMediaSize ParameterInits.
    // S_OK when something was deleted, S_FALSE when there was nothing; a failure is returned,
    // not thrown.
    static HRESULT DeletePageMediaSizeAndItsParameterInitsIfExist(PrintTicketXmlDocument& ticket);
    // Replaces the ticket's PageMediaSize by the form's: named option with its size in microns,
    // or for a custom size (paper id 256) ParameterRefs and the ParameterInits they name.
    // Returns S_OK; throws on failure.
    static HRESULT AddOrReplacePageMediaSize(PrintTicketXmlDocument& ticket, bool isPostScript,
                                             PageSizeDictionary& dictionary, FormsInfoRec& form);
    static HRESULT AddOrReplacePageMediaSize(PrintTicketXmlDocument& ticket, bool isPostScript,
                                             FormsInfoRec& form);
};
