// setticketfilter.h: SetTicketFilter, a sample filter that sets Print Schema features and
// parameters in the PrintTickets of a job, as its pipeline configuration asks:
//
//   <Filter name="a4" builtin="setticket">
//     <Parameter name="PageMediaSize" value="ISOA4"/>
//     <Parameter name="PageOrientation" value="Landscape"/>
//     <Parameter name="JobCopiesAllDocuments" value="2"/>
//   </Filter>
//
// Each parameter names a public Print Schema keyword: a Feature gets the named Option, a
// parameter (JobCopiesAllDocuments, ...) gets a ParameterInit with the value. A setting goes into
// the ticket of the scope its name begins with (Job..., Document..., Page...); the parameter
// Scope=page|document|job puts every setting into that scope's tickets instead. Tickets are
// rewritten through PrintTicketEditor, so pages that shared one ticket still share one rewritten
// ticket part. docs/filters.md lists the keywords and the rules.
#pragma once

#include <string>
#include <vector>

#include "filterpipeline/filterutilities/printticketeditor.h"
#include "filterpipeline/filterutilities/xpsfilterbase.h"

class SetTicketFilter : public XpsFilterBase {
public:
    // How a keyword is written into a ticket.
    enum class SettingKind {
        Feature,           // <Feature name="psk:X"><Option name="psk:Value"/></Feature>
        IntegerParameter,  // <ParameterInit name="psk:X"><Value xsi:type="xsd:integer">
        StringParameter,   // <ParameterInit name="psk:X"><Value xsi:type="xsd:string">
    };

    // One configured setting.
    struct Setting {
        std::wstring keyword;  // without prefix, e.g. PageMediaSize
        SettingKind kind;
        std::wstring value;
        EPrintTicketScope scope;
    };

    SetTicketFilter();
    ~SetTicketFilter() override;

    // Stores the pipeline objects (as every filter does), then reads and checks the settings
    // from the filter's parameters. A bad parameter value gives E_INVALIDARG, with the reason
    // sent to the debug output.
    HRESULT InitializeFilter(IInterFilterCommunicator* communicator,
                             IPrintPipelinePropertyBag* propertyBag,
                             IPrintPipelineManagerControl* managerControl) override;

    // The settings read by InitializeFilter, in keyword order.
    const std::vector<Setting>& Settings() const { return m_settings; }

    // Reads the settings a property bag holds for this filter. Fails with E_INVALIDARG and a
    // message for a bad value or scope.
    static HRESULT ReadSettings(IPrintPipelinePropertyBag* bag, std::vector<Setting>& settings,
                                std::string& error);

protected:
    HRESULT OnFixedDocumentSequence(IFixedDocumentSequence* sequence) override;
    HRESULT OnFixedDocument(IFixedDocument* document) override;
    HRESULT OnFixedPage(IFixedPage* page) override;

private:
    bool HasSettingsFor(EPrintTicketScope scope) const;
    // Rewrites the editor's part's ticket with the settings of the scope: shares an already
    // rewritten ticket, edits the existing one, or makes a new one for a part without.
    HRESULT RewriteTicket(PrintTicketEditor& editor, EPrintTicketScope scope);
    HRESULT ApplySettings(PrintTicketXmlDocument& ticket, EPrintTicketScope scope);

    std::vector<Setting> m_settings;
};

// A new SetTicketFilter (one reference), as the pipeline host's factories return them.
HRESULT CreateSetTicketFilter(IPrintPipelineFilter** filter);
