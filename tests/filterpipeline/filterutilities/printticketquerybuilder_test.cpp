// Tests of PrintTicketQueryBuilder: the step templates verbatim, name joining, the Option union,
// clearing, copies, and the E_FAIL of a builder without an element prefix.
#include "filterpipeline/filterutilities/printticketquerybuilder.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "documenttesting.h"

using documenttesting::ThrownHresult;
using Builder = PrintTicketQueryBuilder;

namespace {

std::wstring QueryOf(const Builder& builder) {
    CComBSTR query;
    builder.GetQuery(&query);
    return query.m_str == nullptr ? std::wstring(L"<null>") : std::wstring(query.m_str);
}

}  // namespace

TEST(PrintTicketQueryBuilder, StepsBuildTheExpectedQuery) {
    using Step = void (Builder::*)(const wchar_t*, const wchar_t*);
    const struct Row {
        const char* name;
        const wchar_t* initial;
        std::function<void(Builder&)> steps;
        const wchar_t* expected;
    } rows[] = {
        // clang-format off
        {"feature, option, value", nullptr, [](Builder& b) {
             b.AddFeature(L"psk:", L"PageMediaSize");
             b.AddChildOptionName(L"psk:", L"NorthAmericaLetter"), b.AddValue(); },
         L"//psf:Feature[@name = \"psk:PageMediaSize\"]"
         L"/psf:Option[@name = \"psk:NorthAmericaLetter\"]/psf:Value"},
        {"empty or null name prefix", nullptr, [](Builder& b) {
             b.AddFeature(L"", L"psk:JobCopies"), b.AddParameterRef(nullptr, L"ns0000:Param"); },
         L"//psf:Feature[@name = \"psk:JobCopies\"]//psf:ParameterRef[@name = \"ns0000:Param\"]"},
        {"option union after a feature", nullptr, [](Builder& b) {
             b.AddFeature(L"psk:", L"PageMediaSize"), b.AddOption(L"psk:"); },
         L"//psf:Feature[@name = \"psk:PageMediaSize\"]/psf:Option | "
         L"//psf:Feature[@name = \"psk:PageMediaSize\"]"
         L"/psf:ScoredProperty[@name = \"psk:OptionName\"]/psf:Value"},
        {"option union on an empty query", nullptr, [](Builder& b) { b.AddOption(L"Orientation"); },
         L"/psf:Option | /psf:ScoredProperty[@name = \"OrientationOptionName\"]/psf:Value"},
        {"initial query extended", L".", [](Builder& b) { b.AddChildOptionName(L"psk:", L"A4"); },
         L"./psf:Option[@name = \"psk:A4\"]"},
        {"nothing added", nullptr, [](Builder&) {}, L"<null>"},
        {"cleared", nullptr, [](Builder& b) { b.AddValue(), b.Clear(); }, L"<null>"},
        {"added after clearing", nullptr, [](Builder& b) { b.AddValue(), b.Clear(), b.AddValue(); },
         L"/psf:Value"},
        // clang-format on
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Builder builder = row.initial ? Builder(L"psf:", row.initial) : Builder(L"psf:");
        row.steps(builder);
        EXPECT_EQ(QueryOf(builder), row.expected);
    }
    // Every step template, under another element prefix.
    const std::pair<Step, const wchar_t*> steps[] = {
        {&Builder::AddFeature, L"//p:Feature[@name = \"k:N\"]"},
        {&Builder::AddProperty, L"//p:Property[@name = \"k:N\"]"},
        {&Builder::AddChildProperty, L"/p:Property[@name = \"k:N\"]"},
        {&Builder::AddChildPropertyValue, L"/p:Property[@name = \"k:N\"]/p:Value"},
        {&Builder::AddScoredProperty, L"//p:ScoredProperty[@name = \"k:N\"]"},
        {&Builder::AddParameterRef, L"//p:ParameterRef[@name = \"k:N\"]"},
        {&Builder::AddParameterDef, L"//p:ParameterDef[@name = \"k:N\"]"},
        {&Builder::AddParameterInit, L"//p:ParameterInit[@name = \"k:N\"]"},
        {&Builder::AddChildOptionName, L"/p:Option[@name = \"k:N\"]"},
    };
    for (const auto& [add, expected] : steps) {
        Builder builder(L"p:");
        (builder.*add)(L"k:", L"N");
        EXPECT_EQ(QueryOf(builder), expected);
    }
}

TEST(PrintTicketQueryBuilder, WithoutPrefixEveryAddThrowsEFailAndLeavesTheQuery) {
    for (const wchar_t* prefix : {static_cast<const wchar_t*>(nullptr), L""}) {
        Builder builder(prefix, L"//x");
        EXPECT_THROWS_HR(builder.AddFeature(L"psk:", L"A"), E_FAIL);
        EXPECT_THROWS_HR(builder.AddValue(), E_FAIL);
        EXPECT_THROWS_HR(builder.AddOption(L"psk:"), E_FAIL);
        EXPECT_THROWS_HR(builder.AddChildOptionName(L"psk:", L"A"), E_FAIL);
        EXPECT_EQ(QueryOf(builder), L"//x");
    }
}

TEST(PrintTicketQueryBuilder, GetQueryFreesTheOldTextAndCopiesAreIndependent) {
    Builder original(L"psf:");
    original.AddFeature(L"psk:", L"A");
    BSTR query = ::SysAllocString(L"stale");  // freed by GetQuery (the leak checker would see it)
    original.GetQuery(&query);
    EXPECT_STREQ(query, L"//psf:Feature[@name = \"psk:A\"]");
    ::SysFreeString(query);
    EXPECT_THROWS_HR(original.GetQuery(nullptr), E_POINTER);

    Builder copy(original);
    copy.AddValue();
    Builder assigned(L"other:");
    assigned = original;
    assigned.Clear();
    assigned.AddValue();
    EXPECT_EQ(QueryOf(original), L"//psf:Feature[@name = \"psk:A\"]");
    EXPECT_EQ(QueryOf(copy), L"//psf:Feature[@name = \"psk:A\"]/psf:Value");
    EXPECT_EQ(QueryOf(assigned), L"/psf:Value");
}
