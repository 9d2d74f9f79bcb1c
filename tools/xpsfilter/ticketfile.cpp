// ticketfile.cpp: the PrintTicket check with the PrintTicket provider's secure parser.
#include "ticketfile.h"

#include <fstream>
#include <sstream>

#include "commandline.h"
#include "platform/prntvpt/ticketxml.h"
#include "toolerror.h"

namespace xpsfilter {
namespace {

constexpr std::streamoff kMaxTicketBytes = std::streamoff{16} << 20;

}  // namespace

void CheckPrintTicketFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary | std::ios::ate);
    if (!in) throw ToolError{kExitBadTicket, path + ": cannot read the ticket file"};
    if (in.tellg() > kMaxTicketBytes) {
        throw ToolError{kExitBadTicket, path + ": the ticket is larger than 16 MiB"};
    }
    in.seekg(0);
    std::ostringstream bytes;
    bytes << in.rdbuf();
    if (!in && !in.eof()) throw ToolError{kExitBadTicket, path + ": cannot read the ticket file"};
    platform::prntvpt::TicketError error;
    if (!platform::prntvpt::ParsePrintTicket(bytes.str(), platform::prntvpt::TicketRole::Base,
                                             error)) {
        // The provider words it for a merge ("The base ticket is ..."); here it is the file.
        std::string what = error.message;
        const std::string role = "The base ticket ";
        if (what.rfind(role, 0) == 0) what.erase(0, role.size());
        throw ToolError{kExitBadTicket, path + ": " + what};
    }
}

}  // namespace xpsfilter
