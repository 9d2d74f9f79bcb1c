// printticketquerybuilder.cpp: the XPath step templates of Print Schema queries and the union
// that reads a Feature's selected option.
#include "filterpipeline/filterutilities/printticketquerybuilder.h"

#include <initializer_list>
#include <string>

#include "support/errorframe/errorframe.h"
#include "support/utilities/cxstring.h"

namespace {

bool IsEmpty(const wchar_t* text) {
    return text == nullptr || *text == L'\0';
}

// The template with each "%s" replaced by the next argument. The step templates hold nothing but
// "%s" conversions, so this gives what the formatter gives, without parsing a format per step.
std::wstring Expand(const wchar_t* stepTemplate, std::initializer_list<const wchar_t*> arguments) {
    std::wstring out;
    out.reserve(96);
    auto next = arguments.begin();
    const wchar_t* from = stepTemplate;
    for (const wchar_t* c = stepTemplate; *c != L'\0'; ++c) {
        if (c[0] != L'%' || c[1] != L's' || next == arguments.end()) continue;
        out.append(from, static_cast<std::size_t>(c - from));
        if (*next != nullptr) out.append(*next);
        ++next;
        from = ++c + 1;
    }
    out.append(from);
    return out;
}

}  // namespace

PrintTicketQueryBuilder::PrintTicketQueryBuilder(const wchar_t* elementPrefix)
    : m_elementPrefix(elementPrefix) {}

PrintTicketQueryBuilder::PrintTicketQueryBuilder(const wchar_t* elementPrefix,
                                                 const wchar_t* initialQuery)
    : m_query(initialQuery), m_elementPrefix(elementPrefix) {}

void PrintTicketQueryBuilder::Clear() {
    m_query.Empty();
}

void PrintTicketQueryBuilder::GetQuery(BSTR* query) const {
    static constexpr wchar_t kMethod[] = L"PrintTicketQueryBuilder::GetQuery";
    if (query == nullptr) THROW_COM(E_POINTER, kMethod, "");
    ::SysFreeString(*query);
    *query = m_query.Copy();
    if (*query == nullptr && m_query.m_str != nullptr) THROW_COM(E_OUTOFMEMORY, kMethod, "");
}

void PrintTicketQueryBuilder::RequirePrefix(const wchar_t* method) const {
    if (m_elementPrefix.Length() == 0) THROW_COM(E_FAIL, method, "");
}

void PrintTicketQueryBuilder::Append(const wchar_t* method, const wchar_t* text) {
    THROW_COM_IF_FAILED(m_query.Append(text), method, "");
}

void PrintTicketQueryBuilder::AppendNamedStep(const wchar_t* method, const wchar_t* stepTemplate,
                                              const wchar_t* namePrefix, const wchar_t* localName) {
    RequirePrefix(method);
    CXString name(IsEmpty(namePrefix) ? L"" : namePrefix);
    name += IsEmpty(localName) ? L"" : localName;
    const wchar_t* prefix = m_elementPrefix;
    Append(method,
           Expand(stepTemplate, {prefix, static_cast<const wchar_t*>(name), prefix}).c_str());
}

void PrintTicketQueryBuilder::AddFeature(const wchar_t* namePrefix, const wchar_t* localName) {
    AppendNamedStep(L"PrintTicketQueryBuilder::AddFeature", L"//%sFeature[@name = \"%s\"]",
                    namePrefix, localName);
}

void PrintTicketQueryBuilder::AddProperty(const wchar_t* namePrefix, const wchar_t* localName) {
    AppendNamedStep(L"PrintTicketQueryBuilder::AddProperty", L"//%sProperty[@name = \"%s\"]",
                    namePrefix, localName);
}

void PrintTicketQueryBuilder::AddChildProperty(const wchar_t* namePrefix,
                                               const wchar_t* localName) {
    AppendNamedStep(L"PrintTicketQueryBuilder::AddChildProperty", L"/%sProperty[@name = \"%s\"]",
                    namePrefix, localName);
}

void PrintTicketQueryBuilder::AddChildPropertyValue(const wchar_t* namePrefix,
                                                    const wchar_t* localName) {
    AppendNamedStep(L"PrintTicketQueryBuilder::AddChildPropertyValue",
                    L"/%sProperty[@name = \"%s\"]/%sValue", namePrefix, localName);
}

void PrintTicketQueryBuilder::AddScoredProperty(const wchar_t* namePrefix,
                                                const wchar_t* localName) {
    AppendNamedStep(L"PrintTicketQueryBuilder::AddScoredProperty",
                    L"//%sScoredProperty[@name = \"%s\"]", namePrefix, localName);
}

void PrintTicketQueryBuilder::AddParameterRef(const wchar_t* namePrefix, const wchar_t* localName) {
    AppendNamedStep(L"PrintTicketQueryBuilder::AddParameterRef",
                    L"//%sParameterRef[@name = \"%s\"]", namePrefix, localName);
}

void PrintTicketQueryBuilder::AddParameterDef(const wchar_t* namePrefix, const wchar_t* localName) {
    AppendNamedStep(L"PrintTicketQueryBuilder::AddParameterDef",
                    L"//%sParameterDef[@name = \"%s\"]", namePrefix, localName);
}

void PrintTicketQueryBuilder::AddParameterInit(const wchar_t* namePrefix,
                                               const wchar_t* localName) {
    AppendNamedStep(L"PrintTicketQueryBuilder::AddParameterInit",
                    L"//%sParameterInit[@name = \"%s\"]", namePrefix, localName);
}

void PrintTicketQueryBuilder::AddChildOptionName(const wchar_t* namePrefix,
                                                 const wchar_t* localName) {
    AppendNamedStep(L"PrintTicketQueryBuilder::AddChildOptionName", L"/%sOption[@name = \"%s\"]",
                    namePrefix, localName);
}

void PrintTicketQueryBuilder::AddValue() {
    static constexpr wchar_t kMethod[] = L"PrintTicketQueryBuilder::AddValue";
    RequirePrefix(kMethod);
    Append(kMethod, Expand(L"/%sValue", {m_elementPrefix}).c_str());
}

void PrintTicketQueryBuilder::AddOption(const wchar_t* featureName) {
    static constexpr wchar_t kMethod[] = L"PrintTicketQueryBuilder::AddOption";
    RequirePrefix(kMethod);
    // Both branches of the union start at the query as it was before this call.
    const std::wstring saved(m_query.m_str == nullptr ? L"" : m_query.m_str, m_query.Length());
    const wchar_t* prefix = m_elementPrefix;
    // Appended at once: the union reads "/<prefix>Option | " and the saved query followed by
    // the ScoredProperty step.
    std::wstring text = Expand(L"/%sOption", {prefix});
    text += L" | ";
    text += saved;
    text += Expand(L"/%sScoredProperty[@name = \"%sOptionName\"]/%sValue",
                   {prefix, IsEmpty(featureName) ? L"" : featureName, prefix});
    THROW_COM_IF_FAILED(m_query.Append(text.data(), static_cast<int>(text.size())), kMethod, "");
}
