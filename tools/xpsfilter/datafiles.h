// datafiles.h: the data the command ships with, installed under share/filterutilities/ beside
// its bin/ folder: the sample pipelines (pipelines/), the sample printer registry (printers/)
// and the default PrintTicket (default_ticket.xml).
#pragma once

#include <string>

namespace xpsfilter {

class DataFiles {
public:
    // share/filterutilities of the installation the running program belongs to; empty when
    // there is none (the build tree).
    static std::string Folder();
    // A --pipeline argument: the file itself when it exists or names a folder; otherwise an
    // installed sample pipeline of that name (with or without ".xml"), if there is one.
    static std::string Pipeline(const std::string& argument);
    // The installed default PrintTicket, or empty (the embedded one is used).
    static std::string DefaultTicket();
    // Points FU_PRINTER_REGISTRY at the installed sample registry when it is unset and the
    // system registry (/etc/xpsfilter/printers) does not exist.
    static void UseSamplePrinters();
};

}  // namespace xpsfilter
