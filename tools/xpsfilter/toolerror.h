// toolerror.h: a failure that ends an xpsfilter subcommand before or after its real work (an
// output that cannot be written, standard input read twice): the exit code and the message,
// which main prints after "xpsfilter: ". It is deliberately not a std::exception, so that the
// subcommands' own handlers for library errors let it through to main.
#pragma once

#include <string>

namespace xpsfilter {

struct ToolError {
    int exitCode;
    std::string message;
};

}  // namespace xpsfilter
