// proofmarkfilter.h: ProofMarkFilter, the filter of the filter template. It marks every page of a
// job as a proof: the page's PrintTicket asks for draft output quality (psk:PageOutputQuality =
// psk:Draft) and a filled square is drawn in the page's top left corner. Copy this folder, rename
// the class, and replace the two steps of OnFixedPage with your own.
//
//   <Filter name="proofmark" dll="libproofmarkfilter.so">
//     <Parameter name="Color" value="#FF0000FF"/>
//   </Filter>
//
// Color (optional): the square's fill, an XPS colour #AARRGGBB or #RRGGBB; red by default.
#pragma once

#include <filterutilities.h>

#include <string>

class ProofMarkFilter : public XpsFilterBase {
public:
    // Stores the pipeline objects (as every filter must), then reads the filter's parameters.
    HRESULT InitializeFilter(IInterFilterCommunicator* communicator,
                             IPrintPipelinePropertyBag* propertyBag,
                             IPrintPipelineManagerControl* managerControl) override;

protected:
    // Called for each fixed page, in order, on the filter's thread. The base class sends the
    // page on to the next filter, so an override that edits the page calls it last.
    HRESULT OnFixedPage(IFixedPage* page) override;

private:
    HRESULT MarkTicket(IFixedPage* page);
    HRESULT DrawMark(IFixedPage* page);

    std::wstring m_color = L"#FFE00000";
};
