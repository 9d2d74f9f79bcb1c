// pipelineconfig.cpp: reading the pipeline configuration file (libxml2).
#include "pipelinehost/pipelineconfig.h"

#include <libxml/parser.h>
#include <libxml/tree.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <set>
#include <sstream>

#include "pipelinehost/hosterror.h"
#include "platform/msxml/domtree.h"

namespace pipelinehost {
namespace {

std::string_view Name(const xmlNode* node) {
    return reinterpret_cast<const char*>(node->name);
}

std::optional<std::string> Attribute(const xmlNode* node, const char* name) {
    xmlChar* value = xmlGetNoNsProp(node, reinterpret_cast<const xmlChar*>(name));
    if (value == nullptr) return std::nullopt;
    std::string text(reinterpret_cast<const char*>(value));
    xmlFree(value);
    return text;
}

[[noreturn]] void Bad(const std::string& why) {
    throw JobError(ErrorKind::Config, "pipeline configuration: " + why);
}

}  // namespace

PipelineConfig ParsePipelineConfig(const std::string& xml, const std::string& baseDirectory) {
    platform::msxml::EnsureLibxml();
    xmlDoc* doc = xmlReadMemory(xml.data(), static_cast<int>(xml.size()), nullptr, nullptr,
                                XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING);
    if (doc == nullptr) Bad("not well-formed XML");
    std::unique_ptr<xmlDoc, void (*)(xmlDoc*)> owner(doc, xmlFreeDoc);
    if (doc->intSubset != nullptr) Bad("DTDs are not allowed");
    const xmlNode* root = xmlDocGetRootElement(doc);
    if (root != nullptr && Name(root) == "Filter_Pipeline_Config") {
        const xmlNode* filters = nullptr;
        for (const xmlNode* node = root->children; node != nullptr; node = node->next) {
            if (node->type == XML_ELEMENT_NODE && Name(node) == "Filters") filters = node;
        }
        root = filters;
    }
    if (root == nullptr || Name(root) != "Filters") Bad("the root element must be <Filters>");
    PipelineConfig config;
    std::set<std::string> names;
    for (const xmlNode* node = root->children; node != nullptr; node = node->next) {
        if (node->type != XML_ELEMENT_NODE) continue;
        if (Name(node) != "Filter") Bad("unexpected element <" + std::string(Name(node)) + ">");
        FilterEntry filterEntry;
        filterEntry.name = Attribute(node, "name").value_or("");
        if (filterEntry.name.empty()) Bad("a <Filter> has no name");
        if (!names.insert(filterEntry.name).second)
            Bad("two filters are named \"" + filterEntry.name + "\"");
        filterEntry.builtin = Attribute(node, "builtin").value_or("");
        std::string dll = Attribute(node, "dll").value_or("");
        if (filterEntry.builtin.empty() == dll.empty()) {
            Bad("filter \"" + filterEntry.name +
                "\" needs exactly one of builtin=\"...\" or dll=\"...\"");
        }
        if (!dll.empty()) {
            std::filesystem::path path(dll);
            if (path.is_relative() && !baseDirectory.empty()) {
                path = std::filesystem::path(baseDirectory) / path;
            }
            filterEntry.dll = path.string();
        }
        filterEntry.className = Attribute(node, "class").value_or("");
        for (const xmlNode* child = node->children; child != nullptr; child = child->next) {
            if (child->type != XML_ELEMENT_NODE || Name(child) != "Parameter") continue;
            std::optional<std::string> name = Attribute(child, "name");
            std::optional<std::string> value = Attribute(child, "value");
            if (!name || name->empty() || !value) {
                Bad("filter \"" + filterEntry.name + "\" has a <Parameter> without name or value");
            }
            filterEntry.parameters.emplace_back(*name, *value);
        }
        config.filters.push_back(std::move(filterEntry));
    }
    if (config.filters.empty()) Bad("no <Filter> is named");
    return config;
}

PipelineConfig LoadPipelineConfig(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) Bad("cannot open " + path);
    std::ostringstream text;
    text << in.rdbuf();
    if (text.str().size() > (std::size_t{16} << 20)) Bad(path + " is too large");
    std::string base = std::filesystem::path(path).parent_path().string();
    return ParsePipelineConfig(text.str(), base.empty() ? "." : base);
}

PipelineConfig DefaultPipelineConfig() {
    PipelineConfig config;
    FilterEntry pass;
    pass.name = "passthrough";
    pass.builtin = "passthrough";
    config.filters.push_back(pass);
    return config;
}

}  // namespace pipelinehost
