// ticketmarkup.cpp: parsing a ticket part once with libxml2, no network, no entities, no DTD.
#include "pipelinehost/ticketmarkup.h"

#include <libxml/parser.h>
#include <libxml/xmlerror.h>

#include <climits>
#include <memory>

#include "pipelinehost/hosterror.h"

namespace pipelinehost {

namespace {

struct Problems {
    std::string first;

    static void Collect(void* context, xmlErrorPtr error) {
        auto* self = static_cast<Problems*>(static_cast<xmlParserCtxtPtr>(context)->_private);
        // A namespace name that is not an absolute URI is a warning, not a fault: namespace
        // names are compared as strings.
        if (error == nullptr || error->level < XML_ERR_ERROR || error->code == XML_WAR_NS_URI) {
            return;
        }
        if (self->first.empty()) {
            std::string message = error->message != nullptr ? error->message : "not well-formed";
            while (!message.empty() && (message.back() == '\n' || message.back() == ' ')) {
                message.pop_back();
            }
            self->first = "line " + std::to_string(error->line) + ": " + message;
        }
    }
};

struct ContextFree {
    void operator()(xmlParserCtxt* context) const { xmlFreeParserCtxt(context); }
};
struct DocFree {
    void operator()(xmlDoc* doc) const { xmlFreeDoc(doc); }
};

}  // namespace

void CheckTicketMarkup(const std::string& markup, const std::string& partName) {
    if (markup.size() > static_cast<std::size_t>(INT_MAX)) {
        throw JobError(ErrorKind::BadPackage, partName + ": the PrintTicket is too large");
    }
    std::unique_ptr<xmlParserCtxt, ContextFree> context(xmlNewParserCtxt());
    if (!context) throw JobError(ErrorKind::Internal, "out of memory");
    Problems problems;
    context->_private = &problems;
    context->sax->serror = &Problems::Collect;
    std::unique_ptr<xmlDoc, DocFree> doc(
        xmlCtxtReadMemory(context.get(), markup.data(), static_cast<int>(markup.size()), nullptr,
                          nullptr, XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING));
    if (problems.first.empty() && (!doc || !context->wellFormed)) {
        problems.first = "not well-formed XML";
    }
    if (problems.first.empty() && doc && doc->intSubset != nullptr) {
        problems.first = "a PrintTicket must not have a document type declaration";
    }
    if (!problems.first.empty()) {
        throw JobError(ErrorKind::BadPackage,
                       partName + ": the PrintTicket is not well-formed XML with namespaces (" +
                           problems.first + ")");
    }
}

}  // namespace pipelinehost
