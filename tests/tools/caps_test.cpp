// Tests of `xpsfilter caps show` and `xpsfilter ticket validate`, through the command: tickets
// checked against a small PrintCapabilities document, and the corpus's capabilities listed.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "toolrunner.h"

namespace {

namespace fs = std::filesystem;
using namespace toolrunner;

const char* kCaps = R"(<?xml version="1.0" encoding="UTF-8"?>
<psf:PrintCapabilities version="1"
    xmlns:psf="http://schemas.microsoft.com/windows/2003/08/printing/printschemaframework"
    xmlns:psk="http://schemas.microsoft.com/windows/2003/08/printing/printschemakeywords"
    xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance"
    xmlns:xsd="http://www.w3.org/2001/XMLSchema" xmlns:v="http://vendor.example/v">
  <psf:Feature name="psk:PageMediaSize">
    <psf:Property name="psf:SelectionType"><psf:Value xsi:type="xsd:QName">psk:PickOne</psf:Value></psf:Property>
    <psf:Option name="psk:ISOA4"/>
    <psf:Option name="psk:NorthAmericaLetter"/>
  </psf:Feature>
  <psf:ParameterDef name="psk:JobCopiesAllDocuments">
    <psf:Property name="psf:DataType"><psf:Value xsi:type="xsd:QName">xsd:integer</psf:Value></psf:Property>
    <psf:Property name="psf:MinValue"><psf:Value xsi:type="xsd:integer">1</psf:Value></psf:Property>
    <psf:Property name="psf:MaxValue"><psf:Value xsi:type="xsd:integer">999</psf:Value></psf:Property>
    <psf:Property name="psf:Multiple"><psf:Value xsi:type="xsd:integer">1</psf:Value></psf:Property>
  </psf:ParameterDef>
  <psf:ParameterDef name="v:Step">
    <psf:Property name="psf:DataType"><psf:Value xsi:type="xsd:QName">xsd:integer</psf:Value></psf:Property>
    <psf:Property name="psf:Multiple"><psf:Value xsi:type="xsd:integer">10</psf:Value></psf:Property>
  </psf:ParameterDef>
  <psf:ParameterDef name="v:Label">
    <psf:Property name="psf:DataType"><psf:Value xsi:type="xsd:QName">xsd:string</psf:Value></psf:Property>
    <psf:Property name="psf:MaxLength"><psf:Value xsi:type="xsd:integer">4</psf:Value></psf:Property>
  </psf:ParameterDef>
</psf:PrintCapabilities>)";

// A ticket whose prefixes differ from the capabilities' (k for the keywords, w for the vendor).
std::string Ticket(const std::string& body) {
    return R"(<psf:PrintTicket version="1"
    xmlns:psf="http://schemas.microsoft.com/windows/2003/08/printing/printschemaframework"
    xmlns:k="http://schemas.microsoft.com/windows/2003/08/printing/printschemakeywords"
    xmlns:w="http://vendor.example/v" xmlns:other="http://other.example/">)" +
           body + "</psf:PrintTicket>";
}

std::string Feature(const std::string& option) {
    return "<psf:Feature name=\"k:PageMediaSize\"><psf:Option name=\"" + option +
           "\"/></psf:Feature>";
}

std::string Parameter(const std::string& name, const std::string& value) {
    return "<psf:ParameterInit name=\"" + name + "\"><psf:Value>" + value +
           "</psf:Value></psf:ParameterInit>";
}

// Tickets checked against the capabilities: options and parameters the device offers pass,
// every kind of value it does not is named with the reason.
TEST(ValidateTicketCommand, AgainstTheCapabilities) {
    const fs::path dir = WorkDir("validate");
    std::ofstream(dir / "caps.xml") << kCaps;
    const struct {
        const char* name;
        std::string ticketBody;
        int exitCode;
        const char* expected;
    } rows[] = {
        {"offered_option_under_another_prefix",
         Feature("k:ISOA4") + Parameter("k:JobCopiesAllDocuments", "2") +
             Parameter("w:Step", "30") + Parameter("w:Label", "abcd"),
         0, "Valid."},
        {"option_not_offered", Feature("k:ISOA3"), 16,
         "k:PageMediaSize = k:ISOA3: the device does not offer this option (it offers "
         "psk:ISOA4, psk:NorthAmericaLetter)"},
        {"same_local_name_in_another_namespace", Feature("other:ISOA4"), 16,
         "does not offer this option"},
        {"above_the_maximum", Parameter("k:JobCopiesAllDocuments", "1000"), 16,
         "above the maximum 999"},
        {"below_the_minimum", Parameter("k:JobCopiesAllDocuments", "0"), 16, "below the minimum 1"},
        {"not_an_integer", Parameter("k:JobCopiesAllDocuments", "2.5"), 16, "not an integer"},
        {"not_a_multiple", Parameter("w:Step", "25"), 16, "not a multiple of 10"},
        {"string_too_long", Parameter("w:Label", "abcde"), 16, "longer than 4 characters"},
        {"unknown_settings_are_notes_only",
         "<psf:Feature name=\"k:PageOrientation\"><psf:Option name=\"k:Landscape\"/></psf:Feature>",
         0, "note: k:PageOrientation: not in the capabilities"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        std::ofstream(dir / "ticket.xml") << Ticket(row.ticketBody);
        const Outcome validated = RunTool({"ticket", "validate", (dir / "ticket.xml").string(),
                                           "--caps", (dir / "caps.xml").string()});
        EXPECT_EQ(validated.exitCode, row.exitCode) << validated.output;
        ExpectContains(validated.output, {row.expected});
    }
}

TEST(ValidateTicketCommand, DocumentsOfTheWrongKindAreBadTickets) {
    const fs::path dir = WorkDir("validate_wrong_kind");
    std::ofstream(dir / "caps.xml") << kCaps;
    std::ofstream(dir / "ticket.xml") << Ticket("");
    const Outcome swapped = RunTool({"ticket", "validate", (dir / "caps.xml").string(), "--caps",
                                     (dir / "ticket.xml").string()});
    EXPECT_EQ(swapped.exitCode, 7);
    ExpectContains(swapped.output, {"is not a PrintTicket"});
    const Outcome missing = RunTool({"caps", "show", (dir / "none.xml").string()});
    EXPECT_EQ(missing.exitCode, 3) << missing.output;
}

TEST(CapsShowCommand, ListsFeaturesOptionsAndParameterRanges) {
    const Outcome shown =
        RunTool({"caps", "show", std::string(FU_CORPUS_DIR) + "/caps/kip_print-capabilities.xml"});
    ASSERT_EQ(shown.exitCode, 0) << shown.output;
    ExpectContains(shown.output, {"psk:JobCopiesAllDocuments \"Copy Count\": integer 1..9999, "
                                  "default 1 (copies), Unconditional",
                                  "psk:PageMediaSize"});
    const Outcome json = Shell(
        Quote(Tool()) + " caps show --json " +
        Quote(std::string(FU_CORPUS_DIR) + "/caps/kip_print-capabilities.xml") + " | python3 -c " +
        Quote("import json, sys\nd = json.load(sys.stdin)\n"
              "print([p['maxValue'] for p in d['parameters'] "
              "if p['name'] == 'psk:JobCopiesAllDocuments'][0])"));
    EXPECT_EQ(json.output, "9999\n");
}

}  // namespace
