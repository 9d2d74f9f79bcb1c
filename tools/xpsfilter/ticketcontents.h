// ticketcontents.h: what the ticket subcommands read from a PrintTicket and how they print it
// (ticket.cpp): the typed view a filter gets, and the features, parameters and properties the
// ticket itself writes, as text or JSON. `ticket show` prints one ticket file; `ticket effective`
// prints the ticket a page of a job ends up with, each item marked with where it came from.
#pragma once

#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "filterpipeline/filterutilities/printticketxmldocument.h"
#include "filterpipeline/filterutilities/xpsfilterprintticket.h"

namespace xpsfilter {

// One setting of the typed view: its value as text and as JSON members, and how it was found.
struct ViewSetting {
    std::string label;
    std::string key;
    std::string text;
    std::vector<std::pair<std::string, std::string>> json;  // member name, JSON value
    bool found = false;
    HRESULT status = S_OK;
};

// A Feature, ParameterInit or Property of the ticket as the ticket writes it.
struct Item {
    std::string name;
    std::string value;  // the selected option, or the parameter's or property's value
    std::vector<std::pair<std::string, std::string>> details;  // scored properties
    std::vector<Item> children;                                // sub-features
    std::string origin = {};  // where it came from ("page", "job", ...), when known
};

struct TicketContents {
    std::vector<ViewSetting> view;
    std::vector<Item> features;
    std::vector<Item> parameters;
    std::vector<Item> properties;
};

std::string JsonString(const std::string& text);
// The element children of `parent` in the Print Schema framework namespace with that local name,
// whatever their prefix.
std::vector<CComPtr<IXMLDOMNode>> FrameworkChildren(IXMLDOMNode* parent, const char* localName);
std::vector<ViewSetting> ReadView(XpsFilterPrintTicket& view);
// The root's features, parameter initialisers and properties.
TicketContents ReadContents(PrintTicketXmlDocument& ticket);
// The `ticket show` output. extraJson: members (each "  \"name\": value,\n") placed after
// "ticket" in the JSON form.
std::string FormatShow(const std::string& title, const TicketContents& contents, bool json,
                       const std::string& extraJson = "");

}  // namespace xpsfilter
