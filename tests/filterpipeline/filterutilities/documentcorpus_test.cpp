// Tests over the real-world corpus: every PrintTicket and PrintCapabilities document loads as its
// own class and is rejected by the other, its prefixes are discovered, every Feature's selected
// option and every ScoredProperty value of a ticket is read as libxml2 reads it, and a ticket
// whose private namespace is moved to "zk" re-parses with the same names and namespaces.
#include <gtest/gtest.h>
#include <libxml/parser.h>
#include <libxml/tree.h>

#include <map>
#include <set>

#include "documenttesting.h"

using namespace documenttesting;

namespace {

// Prefix (with colon) declared on the root for each namespace URI, as libxml2 reads the file.
std::map<std::string, std::string> RootDeclarations(const std::string& bytes) {
    std::map<std::string, std::string> prefixes;
    std::unique_ptr<xmlDoc, decltype(&xmlFreeDoc)> doc(
        xmlReadMemory(bytes.data(), static_cast<int>(bytes.size()), nullptr, nullptr,
                      XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING),
        xmlFreeDoc);
    if (!doc) return prefixes;
    for (xmlNsPtr ns = xmlDocGetRootElement(doc.get())->nsDef; ns != nullptr; ns = ns->next) {
        if (ns->prefix == nullptr) continue;
        prefixes.emplace(reinterpret_cast<const char*>(ns->href),
                         std::string(reinterpret_cast<const char*>(ns->prefix)) + ":");
    }
    return prefixes;
}

std::string PrefixText(const CComBSTR& prefix) {
    return prefix.m_str == nullptr ? "<null>" : Utf8(prefix);
}

// The framework, keywords, schema and instance prefixes a document found, and those its root
// declares as libxml2 reads the file.
std::pair<std::vector<std::string>, std::vector<std::string>> Prefixes(
    const PrintSchemaXmlDocument& document, const std::string& bytes) {
    const auto declarations = RootDeclarations(bytes);
    std::vector<std::string> found, declared;
    for (const auto& [prefix, uri] : {std::pair{document.GetFrameworkNsPrefix(), kFramework},
                                      {document.GetKeywordsNsPrefix(), kKeywords},
                                      {document.GetXmlSchemaNsPrefix(), kSchema},
                                      {document.GetXmlSchemaInstanceNsPrefix(), kInstance}}) {
        found.push_back(PrefixText(prefix));
        const auto at = declarations.find(Utf8(uri.c_str()));
        declared.push_back(at == declarations.end() ? "<null>" : at->second);
    }
    return {found, declared};
}

std::string Trim(const std::string& text) {
    const auto first = text.find_first_not_of(" \t\r\n");
    if (first == std::string::npos) return "";
    return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

std::wstring Wide(const std::string& text) {
    return platform::Utf8ToWide(text);
}

std::string Quoted(const std::string& text) {
    return "\"" + text + "\"";
}

// The corpus files of a folder, as path texts (ctest names each test after its file).
std::vector<std::string> Files(const char* folder) {
    std::vector<std::string> files;
    for (const auto& path : CorpusFiles(folder)) files.push_back(path.string());
    return files;
}

std::string FileName(const ::testing::TestParamInfo<std::string>& info) {
    std::string name = std::filesystem::path(info.param).stem().string();
    for (char& c : name) {
        if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
    }
    return name;
}

class TicketCorpus : public ::testing::TestWithParam<std::string> {
protected:
    void SetUp() override {
        m_bytes = ReadFile(GetParam());
        ASSERT_FALSE(m_bytes.empty());
        m_dom = TryLoadBytes(m_bytes);
        ASSERT_NE(m_dom, nullptr) << "the DOM does not load " << GetParam();
    }

    std::string m_bytes;
    CComPtr<IXMLDOMDocument2> m_dom;
};

class CapabilitiesCorpus : public TicketCorpus {};

}  // namespace

TEST_P(TicketCorpus, LoadsWithTheDeclaredPrefixesAndReadsEveryOptionAndValue) {
    PrintTicketXmlDocument ticket(m_dom);
    const auto [found, declared] = Prefixes(ticket, m_bytes);
    EXPECT_EQ(found, declared);
    EXPECT_EQ(PrefixText(ticket.GetUserKeywordsNsPrefix()), "ns0000:");
    EXPECT_THROWS_HR(PrintCapabilitiesXmlDocument capabilities(m_dom), S_FALSE);

    // Every Feature's selected option is read or reported absent.
    RawXml raw(m_bytes);
    ASSERT_TRUE(raw.Parsed());
    const std::string keywords = PrefixText(ticket.GetKeywordsNsPrefix());
    for (const std::string& feature : raw.Strings("//psf:Feature/@name")) {
        SCOPED_TRACE(feature);
        const std::string step = "//psf:Feature[@name=" + Quoted(feature) + "]/psf:Option";
        const std::vector<std::string> names = raw.Strings((step + "[1]/@name").c_str());
        std::string expected = names.empty() ? "returned NOT_FOUND" : names[0];
        CComBSTR option, prefix;
        std::string read;
        if (feature.rfind(keywords, 0) == 0) {
            // Every keywords feature of the corpus that names no option has none.
            EXPECT_TRUE(!names.empty() || raw.Count(step.c_str()) == 0);
            const std::wstring local = Wide(feature.substr(keywords.size()));
            read = Outcome([&] { return ticket.GetFeatureOption(local.c_str(), &option, &prefix); },
                           [&] { return Utf8(prefix) + Utf8(option); });
        } else {
            // Features outside the keywords namespace are read with a complete query, which
            // strips only the keywords prefix.
            if (expected.rfind(keywords, 0) == 0) expected.erase(0, keywords.size());
            const std::wstring query = Wide(step + "[1]");
            read = Outcome([&] { return ticket.QueryNodeOption(query.c_str(), &option); },
                           [&] { return Utf8(option); });
        }
        EXPECT_EQ(read, expected);
    }

    // Every ScoredProperty value of a keywords feature is read as libxml2 reads it.
    for (const std::string& feature : raw.Strings("//psf:Feature/@name")) {
        if (feature.rfind(keywords, 0) != 0) continue;
        const std::string featureStep = "//psf:Feature[@name=" + Quoted(feature) + "]";
        for (const std::string& property :
             raw.Strings((featureStep + "//psf:ScoredProperty/@name").c_str())) {
            if (property.rfind(keywords, 0) != 0) continue;
            SCOPED_TRACE(feature + " / " + property);
            const std::string propertyStep =
                featureStep + "//psf:ScoredProperty[@name=" + Quoted(property) + "][1]";
            std::vector<std::string> expected = raw.Strings((propertyStep + "/psf:Value").c_str());
            // Parameterised: the ParameterInit the ParameterRef names.
            for (const std::string& reference :
                 raw.Strings((propertyStep + "/psf:ParameterRef/@name").c_str())) {
                if (!expected.empty()) break;
                expected = raw.Strings(
                    ("//psf:ParameterInit[@name=" + Quoted(reference) + "]/psf:Value").c_str());
            }
            CComBSTR value;
            ASSERT_EQ(ticket.GetScoredPropertyValue(Wide(feature.substr(keywords.size())).c_str(),
                                                    Wide(property.substr(keywords.size())).c_str(),
                                                    &value),
                      S_OK);
            EXPECT_EQ(Utf8(value), expected.empty() ? "" : Trim(expected[0]));
        }
    }
}

TEST_P(TicketCorpus, PrivatePrefixFixUpReparsesWithTheSameNamespaces) {
    // Give the ticket the driver's private namespace: the ns0000 namespace where there is one,
    // else a new declaration under another prefix.
    std::string bytes = m_bytes;
    const auto declarations = RootDeclarations(bytes);
    std::string oldPrefix;
    for (const auto& [uri, prefix] : declarations) {
        if (prefix == "ns0000:") {
            oldPrefix = prefix;
            bytes.replace(bytes.find("\"" + uri + "\""), uri.size() + 2,
                          "\"" + Utf8(kPrivate.c_str()) + "\"");
        }
    }
    if (oldPrefix.empty()) {
        oldPrefix = "vendor7:";
        const std::size_t rootTag = bytes.find("PrintTicket");
        bytes.insert(rootTag + std::string("PrintTicket").size(),
                     " xmlns:vendor7=\"" + Utf8(kPrivate.c_str()) + "\"");
    }
    RawXml before(bytes);
    ASSERT_TRUE(before.Parsed());
    CComPtr<IXMLDOMDocument2> dom = TryLoadBytes(bytes);
    ASSERT_NE(dom, nullptr);
    PrintTicketXmlDocument ticket(dom);
    EXPECT_EQ(PrefixText(ticket.GetUserKeywordsNsPrefix()), "zk:");

    RawXml after(XmlOf(ticket));
    ASSERT_TRUE(after.Parsed());
    EXPECT_EQ(after.ExpandedNames(), before.ExpandedNames());
    EXPECT_EQ(after.Strings("/*/namespace::zk"), std::vector<std::string>{Utf8(kPrivate.c_str())});
    const std::string oldName = oldPrefix.substr(0, oldPrefix.size() - 1);
    EXPECT_EQ(after.Count(("/*/namespace::" + oldName).c_str()), 0u);
    // Name attributes that began with the old prefix now begin with zk:; the rest are equal.
    std::vector<std::string> expectedNames = before.Strings("//@name");
    for (std::string& name : expectedNames) {
        if (name.rfind(oldPrefix, 0) != 0) continue;
        for (std::size_t at = 0; (at = name.find(oldPrefix, at)) != std::string::npos; at += 3) {
            name.replace(at, oldPrefix.size(), "zk:");
        }
    }
    EXPECT_EQ(after.Strings("//@name"), expectedNames);
    // The fixed-up text loads again, as its own ticket, with the same prefixes.
    CComPtr<IXMLDOMDocument2> reloaded = TryLoadBytes(XmlOf(ticket));
    ASSERT_NE(reloaded, nullptr);
    PrintTicketXmlDocument again(reloaded);
    EXPECT_EQ(PrefixText(again.GetUserKeywordsNsPrefix()), "zk:");
    EXPECT_EQ(PrefixText(again.GetFrameworkNsPrefix()), PrefixText(ticket.GetFrameworkNsPrefix()));
}

INSTANTIATE_TEST_SUITE_P(Tickets, TicketCorpus, ::testing::ValuesIn(Files("tickets")), FileName);

TEST_P(CapabilitiesCorpus, LoadsWithTheDeclaredPrefixesAndFindsEveryOptionAndParameterDef) {
    PrintCapabilitiesXmlDocument capabilities(m_dom);
    const auto [found, declared] = Prefixes(capabilities, m_bytes);
    EXPECT_EQ(found, declared);
    EXPECT_THROWS_HR(PrintTicketXmlDocument ticket(m_dom), S_FALSE);

    // Every Feature lists its options; each named Option is found by name below its Feature.
    RawXml raw(m_bytes);
    for (const std::string& feature : raw.Strings("//psf:Feature/@name")) {
        SCOPED_TRACE(feature);
        CComPtr<IXMLDOMNode> node;
        ASSERT_EQ(capabilities.GetFeatureNodeIfExists(L"", Wide(feature).c_str(), &node), S_OK);
        const std::string options = "(//psf:Feature[@name=" + Quoted(feature) + "])[1]/psf:Option";
        LONG count = 0;
        capabilities.GetChildOptionNodes(node)->get_length(&count);
        EXPECT_EQ(static_cast<std::size_t>(count), raw.Count(options.c_str()));
        for (const std::string& option : raw.Strings((options + "/@name").c_str())) {
            CComPtr<IXMLDOMNode> found;
            EXPECT_EQ(
                capabilities.GetChildOptionNodeIfExists(node, L"", Wide(option).c_str(), &found),
                S_OK)
                << option;
        }
    }
    for (const std::string& name : raw.Strings("//psf:ParameterDef/@name")) {
        CComPtr<IXMLDOMNode> def;
        EXPECT_EQ(capabilities.GetParameterDefNodeIfExists(L"", Wide(name).c_str(), &def), S_OK)
            << name;
    }
    CComPtr<IXMLDOMNode> none;
    EXPECT_EQ(capabilities.GetParameterDefNodeIfExists(L"psk:", L"NoSuchParameter", &none),
              S_FALSE);
}

INSTANTIATE_TEST_SUITE_P(Capabilities, CapabilitiesCorpus, ::testing::ValuesIn(Files("caps")),
                         FileName);
