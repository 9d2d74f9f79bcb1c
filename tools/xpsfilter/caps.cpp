// caps.cpp: `xpsfilter caps show CAPS [--json]` lists what a PrintCapabilities document offers
// (features with their options, parameter definitions with type, range and default), and
// `xpsfilter ticket validate TICKET --caps CAPS [--json]` checks a PrintTicket against it:
// options the device does not offer and parameter values out of range make the ticket not
// valid (exit 16). Names are compared by namespace and local name, so prefixes may differ
// between the two documents.
#include <cstdio>
#include <fstream>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "commandline.h"
#include "filterpipeline/filterutilities/printreadstreamtoistream.h"
#include "filterpipeline/filterutilities/printschema.h"
#include "platform/com/unicode.h"
#include "platform/printpipeline/printstreams.h"
#include "platform/prntvpt/prntvpt.h"
#include "ticketcontents.h"

namespace {

using xpsfilter::FrameworkChildren;

using xpsfilter::JsonString;

constexpr int kExitNotValid = 16;

struct CapsError {
    int exitCode;
    std::string message;
};

std::string Narrow(const BSTR text) {
    return text == nullptr ? std::string()
                           : platform::WideToUtf8(std::wstring_view(text, SysStringLen(text)));
}

// --- reading Print Schema documents through the DOM ---

// A loaded document with the namespace declarations of its root, to expand QName values.
struct SchemaDocument {
    std::string path;
    CComPtr<IXMLDOMDocument2> dom;
    CComPtr<IXMLDOMElement> root;
    std::map<std::string, std::string> prefixes;  // prefix -> namespace URI

    // "{uri}local" for a QName value; the text itself when its prefix is not declared.
    std::string Expand(const std::string& qname) const {
        const auto colon = qname.find(':');
        if (colon == std::string::npos) return qname;
        auto found = prefixes.find(qname.substr(0, colon));
        if (found == prefixes.end()) return qname;
        return "{" + found->second + "}" + qname.substr(colon + 1);
    }
};

std::string AttributeOf(IXMLDOMNode* node, const wchar_t* name) {
    CComQIPtr<IXMLDOMElement> element(node);
    CComVariant value;
    if (!element || element->getAttribute(CComBSTR(name), &value) != S_OK || value.vt != VT_BSTR) {
        return "";
    }
    return Narrow(value.bstrVal);
}

std::string TextOf(IXMLDOMNode* node) {
    CComBSTR text;
    if (node == nullptr || FAILED(node->get_text(&text))) return "";
    return Narrow(text);
}

// The Value text of the Property `name` (a QName as written) directly below node.
std::optional<std::string> PropertyValue(const SchemaDocument& document, IXMLDOMNode* node,
                                         const std::string& expandedName) {
    for (const auto& property : FrameworkChildren(node, "Property")) {
        if (document.Expand(AttributeOf(property, L"name")) != expandedName) continue;
        std::vector<CComPtr<IXMLDOMNode>> values = FrameworkChildren(property, "Value");
        return TextOf(values.empty() ? property.p : values.front().p);
    }
    return std::nullopt;
}

SchemaDocument Load(const std::string& path, const char* rootName) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw CapsError{xpsfilter::kExitInputMissing, "cannot open " + path};
    std::ostringstream buffer;
    buffer << in.rdbuf();
    const std::string bytes = buffer.str();
    if (in.bad()) throw CapsError{xpsfilter::kExitInputMissing, "cannot read " + path};
    if (bytes.size() > platform::kMaxPrintTicketBytes) {
        throw CapsError{xpsfilter::kExitBadTicket, path + " is larger than 16 MiB"};
    }
    SchemaDocument document;
    document.path = path;
    CComPtr<IPrintReadStream> read;
    if (FAILED(platform::CreatePrintReadStreamOnBytes(bytes.data(), bytes.size(), &read)) ||
        FAILED(document.dom.CoCreateInstance(CLSID_DOMDocument60))) {
        throw CapsError{xpsfilter::kExitInternal, "out of memory"};
    }
    CComPtr<IStream> stream;
    stream.Attach(new CPrintReadStreamToIStream(read));
    VARIANT_BOOL loaded = VARIANT_FALSE;
    document.dom->load(CComVariant(static_cast<IUnknown*>(stream.p)), &loaded);
    if (loaded != VARIANT_TRUE) {
        std::string reason;
        CComPtr<IXMLDOMParseError> error;
        if (SUCCEEDED(document.dom->get_parseError(&error)) && error) {
            CComBSTR text;
            error->get_reason(&text);
            reason = Narrow(text);
        }
        throw CapsError{xpsfilter::kExitBadTicket,
                        path + " is not well-formed XML" + (reason.empty() ? "" : ": " + reason)};
    }
    document.dom->get_documentElement(&document.root);
    CComBSTR name;
    CComBSTR uri;
    if (!document.root || FAILED(document.root->get_baseName(&name)) ||
        FAILED(document.root->get_namespaceURI(&uri)) || Narrow(name) != rootName ||
        Narrow(uri) != platform::WideToUtf8(PrintSchema::FrameworkNamespaceUri)) {
        throw CapsError{xpsfilter::kExitBadTicket, path + " is not a " + rootName};
    }
    // The root's namespace declarations: the DOM lists them among its attributes.
    CComPtr<IXMLDOMNamedNodeMap> attributes;
    LONG count = 0;
    if (SUCCEEDED(document.root->get_attributes(&attributes)) && attributes) {
        attributes->get_length(&count);
    }
    for (LONG i = 0; i < count; ++i) {
        CComPtr<IXMLDOMNode> attribute;
        CComBSTR attributeName;
        if (FAILED(attributes->get_item(i, &attribute)) || !attribute ||
            FAILED(attribute->get_nodeName(&attributeName))) {
            continue;
        }
        const std::string text = Narrow(attributeName);
        if (text.rfind("xmlns:", 0) == 0) document.prefixes[text.substr(6)] = TextOf(attribute);
    }
    return document;
}

// --- what a PrintCapabilities document offers ---

struct CapsOption {
    std::string name;  // as written; empty for an option identified by its properties
    std::string displayName;
    std::string constrained;
};

struct CapsFeature {
    std::string name;
    std::string displayName;
    std::string selectionType;
    std::vector<CapsOption> options;
    std::vector<CapsFeature> features;
};

struct CapsParameter {
    std::string name;
    std::string displayName;
    std::string dataType;  // "integer", "decimal", "string" (the xsd: local name)
    std::optional<std::string> minValue, maxValue, multiple, defaultValue, minLength, maxLength;
    std::string unit;
    std::string mandatory;
};

struct Capabilities {
    SchemaDocument document;
    std::vector<CapsFeature> features;
    std::vector<CapsParameter> parameters;
};

std::string Keyword(const char* local) {
    return "{" + platform::WideToUtf8(PrintSchema::KeywordsNamespaceUri) + "}" + local;
}

std::string Framework(const char* local) {
    return "{" + platform::WideToUtf8(PrintSchema::FrameworkNamespaceUri) + "}" + local;
}

std::string LocalOf(const std::string& qname) {
    const auto colon = qname.find(':');
    return colon == std::string::npos ? qname : qname.substr(colon + 1);
}

CapsFeature ReadCapsFeature(const SchemaDocument& document, IXMLDOMNode* node) {
    CapsFeature feature;
    feature.name = AttributeOf(node, L"name");
    feature.displayName = PropertyValue(document, node, Keyword("DisplayName")).value_or("");
    feature.selectionType =
        LocalOf(PropertyValue(document, node, Framework("SelectionType")).value_or(""));
    for (const auto& option : FrameworkChildren(node, "Option")) {
        feature.options.push_back(
            {AttributeOf(option, L"name"),
             PropertyValue(document, option, Keyword("DisplayName")).value_or(""),
             AttributeOf(option, L"constrained")});
    }
    for (const auto& sub : FrameworkChildren(node, "Feature")) {
        feature.features.push_back(ReadCapsFeature(document, sub));
    }
    return feature;
}

Capabilities LoadCapabilities(const std::string& path) {
    Capabilities caps{Load(path, "PrintCapabilities"), {}, {}};
    const SchemaDocument& document = caps.document;
    for (const auto& feature : FrameworkChildren(document.root, "Feature")) {
        caps.features.push_back(ReadCapsFeature(document, feature));
    }
    for (const auto& def : FrameworkChildren(document.root, "ParameterDef")) {
        CapsParameter parameter;
        parameter.name = AttributeOf(def, L"name");
        auto value = [&](const char* name) {
            return PropertyValue(document, def, Framework(name));
        };
        parameter.displayName = PropertyValue(document, def, Keyword("DisplayName")).value_or("");
        parameter.dataType = LocalOf(value("DataType").value_or(""));
        parameter.minValue = value("MinValue");
        parameter.maxValue = value("MaxValue");
        parameter.multiple = value("Multiple");
        parameter.defaultValue = value("DefaultValue");
        parameter.minLength = value("MinLength");
        parameter.maxLength = value("MaxLength");
        parameter.unit = value("UnitType").value_or("");
        parameter.mandatory = LocalOf(value("Mandatory").value_or(""));
        caps.parameters.push_back(std::move(parameter));
    }
    return caps;
}

std::string Quoted(const std::string& displayName) {
    return displayName.empty() ? "" : " \"" + displayName + "\"";
}

std::string RangeText(const CapsParameter& parameter) {
    std::string text = parameter.dataType.empty() ? "untyped" : parameter.dataType;
    if (parameter.minValue || parameter.maxValue) {
        text += " " + parameter.minValue.value_or("") + ".." + parameter.maxValue.value_or("");
    }
    if (parameter.minLength || parameter.maxLength) {
        text += ", length " + parameter.minLength.value_or("0") + ".." +
                parameter.maxLength.value_or("");
    }
    if (parameter.multiple && *parameter.multiple != "1") {
        text += ", multiple of " + *parameter.multiple;
    }
    if (parameter.defaultValue) text += ", default " + *parameter.defaultValue;
    if (!parameter.unit.empty()) text += " (" + parameter.unit + ")";
    if (!parameter.mandatory.empty()) text += ", " + parameter.mandatory;
    return text;
}

void FeatureText(std::ostream& out, const CapsFeature& feature, const std::string& indent) {
    out << indent << feature.name << Quoted(feature.displayName);
    if (!feature.selectionType.empty()) out << " (" << feature.selectionType << ")";
    out << "\n";
    for (const CapsOption& option : feature.options) {
        out << indent << "    " << (option.name.empty() ? "(unnamed option)" : option.name)
            << Quoted(option.displayName);
        if (!option.constrained.empty() && LocalOf(option.constrained) != "None") {
            out << "  [constrained: " << option.constrained << "]";
        }
        out << "\n";
    }
    for (const CapsFeature& sub : feature.features) FeatureText(out, sub, indent + "  ");
}

std::string OptionalJson(const std::optional<std::string>& value) {
    return value ? JsonString(*value) : "null";
}

std::string FeatureJson(const CapsFeature& feature) {
    std::string json = "{\"name\": " + JsonString(feature.name) +
                       ", \"displayName\": " + JsonString(feature.displayName) +
                       ", \"selectionType\": " + JsonString(feature.selectionType) +
                       ", \"options\": [";
    for (std::size_t i = 0; i < feature.options.size(); ++i) {
        const CapsOption& option = feature.options[i];
        json += (i > 0 ? ", " : "") + std::string("{\"name\": ") + JsonString(option.name) +
                ", \"displayName\": " + JsonString(option.displayName) +
                ", \"constrained\": " + JsonString(option.constrained) + "}";
    }
    json += "]";
    if (!feature.features.empty()) {
        json += ", \"features\": [";
        for (std::size_t i = 0; i < feature.features.size(); ++i) {
            json += (i > 0 ? ", " : "") + FeatureJson(feature.features[i]);
        }
        json += "]";
    }
    return json + "}";
}

std::string FormatCaps(const Capabilities& caps, bool json) {
    std::ostringstream out;
    if (json) {
        out << "{\n  \"capabilities\": " << JsonString(caps.document.path)
            << ",\n  \"features\": [";
        for (std::size_t i = 0; i < caps.features.size(); ++i) {
            out << (i > 0 ? "," : "") << "\n    " << FeatureJson(caps.features[i]);
        }
        out << (caps.features.empty() ? "]" : "\n  ]") << ",\n  \"parameters\": [";
        for (std::size_t i = 0; i < caps.parameters.size(); ++i) {
            const CapsParameter& p = caps.parameters[i];
            out << (i > 0 ? "," : "") << "\n    {\"name\": " << JsonString(p.name)
                << ", \"displayName\": " << JsonString(p.displayName)
                << ", \"dataType\": " << JsonString(p.dataType)
                << ", \"minValue\": " << OptionalJson(p.minValue)
                << ", \"maxValue\": " << OptionalJson(p.maxValue)
                << ", \"multiple\": " << OptionalJson(p.multiple)
                << ", \"defaultValue\": " << OptionalJson(p.defaultValue)
                << ", \"minLength\": " << OptionalJson(p.minLength)
                << ", \"maxLength\": " << OptionalJson(p.maxLength)
                << ", \"unit\": " << JsonString(p.unit)
                << ", \"mandatory\": " << JsonString(p.mandatory) << "}";
        }
        out << (caps.parameters.empty() ? "]" : "\n  ]") << "\n}\n";
        return out.str();
    }
    out << "PrintCapabilities: " << caps.document.path << "\n\nFeatures:\n";
    if (caps.features.empty()) out << "  (none)\n";
    for (const CapsFeature& feature : caps.features) FeatureText(out, feature, "  ");
    out << "\nParameters:\n";
    if (caps.parameters.empty()) out << "  (none)\n";
    for (const CapsParameter& parameter : caps.parameters) {
        out << "  " << parameter.name << Quoted(parameter.displayName) << ": "
            << RangeText(parameter) << "\n";
    }
    return out.str();
}

// --- validating a ticket ---

struct Problem {
    std::string setting;  // "psk:PageMediaSize = psk:ISOA4"
    std::string reason;
};

struct Validation {
    std::vector<Problem> problems;  // make the ticket not valid
    std::vector<Problem> notes;     // settings the capabilities do not describe
};

const CapsFeature* FindFeature(const std::vector<CapsFeature>& features, const SchemaDocument& caps,
                               const std::string& expanded) {
    for (const CapsFeature& feature : features) {
        if (caps.Expand(feature.name) == expanded) return &feature;
    }
    return nullptr;
}

void CheckFeatures(const SchemaDocument& ticket, IXMLDOMNode* parent, const Capabilities& caps,
                   const std::vector<CapsFeature>& offered, Validation& result) {
    for (const auto& node : FrameworkChildren(parent, "Feature")) {
        const std::string name = AttributeOf(node, L"name");
        const CapsFeature* feature = FindFeature(offered, caps.document, ticket.Expand(name));
        if (feature == nullptr) {
            result.notes.push_back({name, "not in the capabilities; the device ignores it"});
            continue;
        }
        for (const auto& option : FrameworkChildren(node, "Option")) {
            const std::string optionName = AttributeOf(option, L"name");
            if (optionName.empty()) continue;  // identified by its scored properties
            bool offeredOption = false;
            std::string choices;
            for (const CapsOption& candidate : feature->options) {
                if (candidate.name.empty()) continue;
                choices += (choices.empty() ? "" : ", ") + candidate.name;
                if (caps.document.Expand(candidate.name) == ticket.Expand(optionName)) {
                    offeredOption = true;
                }
            }
            if (!offeredOption) {
                std::string reason = "the device does not offer this option (it offers " +
                                     (choices.empty() ? std::string("none by name") : choices) +
                                     ")";
                // The same spelling with another namespace: say so, or the message reads as
                // a contradiction.
                for (const CapsOption& candidate : feature->options) {
                    if (candidate.name == optionName) {
                        reason += "; its prefix means " + ticket.Expand(optionName) +
                                  " in the ticket but " + caps.document.Expand(candidate.name) +
                                  " in the capabilities";
                    }
                }
                result.problems.push_back({name + " = " + optionName, reason});
            }
        }
        CheckFeatures(ticket, node, caps, feature->features, result);
    }
}

std::optional<long long> Integer(const std::string& text) {
    try {
        std::size_t used = 0;
        const long long value = std::stoll(text, &used);
        if (used == text.size()) return value;
    } catch (const std::exception&) {
    }
    return std::nullopt;
}

std::optional<double> Decimal(const std::string& text) {
    try {
        std::size_t used = 0;
        const double value = std::stod(text, &used);
        if (used == text.size()) return value;
    } catch (const std::exception&) {
    }
    return std::nullopt;
}

// Why a ParameterInit's value is not allowed by its definition, or "".
std::string ParameterProblem(const CapsParameter& def, const std::string& value) {
    if (def.dataType == "integer" || def.dataType == "decimal") {
        const auto number = Decimal(value);
        if (!number || (def.dataType == "integer" && !Integer(value))) {
            return "not " + std::string(def.dataType == "integer" ? "an integer" : "a number");
        }
        if (def.minValue) {
            if (auto min = Decimal(*def.minValue); min && *number < *min) {
                return "below the minimum " + *def.minValue;
            }
        }
        if (def.maxValue) {
            if (auto max = Decimal(*def.maxValue); max && *number > *max) {
                return "above the maximum " + *def.maxValue;
            }
        }
        if (def.dataType == "integer" && def.multiple) {
            const auto step = Integer(*def.multiple);
            const auto whole = Integer(value);
            if (step && *step > 1 && whole && *whole % *step != 0) {
                return "not a multiple of " + *def.multiple;
            }
        }
        return "";
    }
    if (def.dataType == "string") {
        const std::size_t length = platform::Utf8ToWide(value).size();
        if (def.minLength) {
            if (auto min = Integer(*def.minLength); min && static_cast<long long>(length) < *min) {
                return "shorter than " + *def.minLength + " characters";
            }
        }
        if (def.maxLength) {
            if (auto max = Integer(*def.maxLength); max && static_cast<long long>(length) > *max) {
                return "longer than " + *def.maxLength + " characters";
            }
        }
    }
    return "";
}

Validation Validate(const SchemaDocument& ticket, const Capabilities& caps) {
    Validation result;
    CheckFeatures(ticket, ticket.root, caps, caps.features, result);
    for (const auto& init : FrameworkChildren(ticket.root, "ParameterInit")) {
        const std::string name = AttributeOf(init, L"name");
        std::vector<CComPtr<IXMLDOMNode>> values = FrameworkChildren(init, "Value");
        const std::string value = TextOf(values.empty() ? init.p : values.front().p);
        const CapsParameter* def = nullptr;
        for (const CapsParameter& candidate : caps.parameters) {
            if (caps.document.Expand(candidate.name) == ticket.Expand(name)) def = &candidate;
        }
        if (def == nullptr) {
            result.notes.push_back({name + " = " + value, "not in the capabilities"});
            continue;
        }
        const std::string problem = ParameterProblem(*def, value);
        if (!problem.empty()) result.problems.push_back({name + " = " + value, problem});
    }
    return result;
}

std::string ProblemsJson(const std::vector<Problem>& problems) {
    std::string json = "[";
    for (std::size_t i = 0; i < problems.size(); ++i) {
        json += (i > 0 ? ",\n    " : "\n    ") + std::string("{\"setting\": ") +
                JsonString(problems[i].setting) +
                ", \"reason\": " + JsonString(problems[i].reason) + "}";
    }
    return json + (problems.empty() ? "]" : "\n  ]");
}

std::string FormatValidation(const std::string& ticket, const std::string& capsPath,
                             const Validation& result, bool json) {
    std::ostringstream out;
    if (json) {
        out << "{\n  \"ticket\": " << JsonString(ticket)
            << ",\n  \"capabilities\": " << JsonString(capsPath)
            << ",\n  \"valid\": " << (result.problems.empty() ? "true" : "false")
            << ",\n  \"problems\": " << ProblemsJson(result.problems)
            << ",\n  \"notes\": " << ProblemsJson(result.notes) << "\n}\n";
        return out.str();
    }
    out << "Ticket: " << ticket << "\nCapabilities: " << capsPath << "\n\n";
    // Long settings (a device mode in base64) are cut in the text; --json keeps them whole.
    auto shortened = [](const std::string& text) {
        return text.size() <= 100 ? text : text.substr(0, 100) + "...";
    };
    for (const Problem& problem : result.problems) {
        out << "  not valid: " << shortened(problem.setting) << ": " << problem.reason << "\n";
    }
    for (const Problem& problem : result.notes) {
        out << "  note: " << shortened(problem.setting) << ": " << problem.reason << "\n";
    }
    if (result.problems.empty()) {
        out << (result.notes.empty() ? "" : "\n") << "Valid.\n";
    } else {
        out << "\nNot valid: " << result.problems.size() << " problem"
            << (result.problems.size() == 1 ? "" : "s") << ".\n";
    }
    return out.str();
}

template <class Body>
void Guarded(xpsfilter::CommandLine& commands, Body body) {
    int code = xpsfilter::kExitInternal;
    try {
        code = body();
    } catch (const CapsError& error) {
        std::cerr << "xpsfilter: ticket error: " << error.message << "\n";
        code = error.exitCode;
    } catch (const std::exception& error) {
        std::cerr << "xpsfilter: internal error: " << error.what() << "\n";
    }
    commands.SetExitCode(code);
}

struct ShowOptions {
    std::string caps;
    bool json = false;
};

struct ValidateOptions {
    std::string ticket;
    std::string caps;
    bool json = false;
};

}  // namespace

void AddCapsCommand(xpsfilter::CommandLine& commands) {
    CLI::App* group = commands.App().add_subcommand("caps", "Work with PrintCapabilities");
    group->require_subcommand(1);
    auto show = std::make_shared<ShowOptions>();
    CLI::App* command = group->add_subcommand(
        "show", "List the features, options and parameters a PrintCapabilities document offers");
    command->add_option("CAPS", show->caps, "The PrintCapabilities file")->required();
    command->add_flag("--json", show->json, "Print JSON instead of text");
    command->callback([&commands, show] {
        Guarded(commands, [&] {
            std::cout << FormatCaps(LoadCapabilities(show->caps), show->json);
            return xpsfilter::kExitOk;
        });
    });
}

void AddTicketValidateCommand(xpsfilter::CommandLine& commands) {
    CLI::App* ticket = commands.Group("ticket", "Work with PrintTickets");
    auto options = std::make_shared<ValidateOptions>();
    CLI::App* command = ticket->add_subcommand(
        "validate",
        "Check a PrintTicket against a PrintCapabilities document (exit 16 when not valid)");
    command->add_option("TICKET", options->ticket, "The PrintTicket file")->required();
    command->add_option("--caps", options->caps, "The PrintCapabilities file")->required();
    command->add_flag("--json", options->json, "Print JSON instead of text");
    command->callback([&commands, options] {
        Guarded(commands, [&] {
            const SchemaDocument ticketDocument = Load(options->ticket, "PrintTicket");
            const Capabilities caps = LoadCapabilities(options->caps);
            const Validation result = Validate(ticketDocument, caps);
            std::cout << FormatValidation(options->ticket, options->caps, result, options->json);
            return result.problems.empty() ? xpsfilter::kExitOk : kExitNotValid;
        });
    });
}
