// Tests of PrintTicketQueryBuilder: the step templates verbatim, name joining, the Option union,
// and the E_FAIL of a builder without an element prefix.
#include "filterpipeline/filterutilities/printticketquerybuilder.h"

#include <gtest/gtest.h>

#include <string>

#include "documenttesting.h"

using documenttesting::ThrownHresult;

namespace {

std::wstring QueryOf(const PrintTicketQueryBuilder& builder) {
    CComBSTR query;
    builder.GetQuery(&query);
    return query.m_str == nullptr ? std::wstring(L"<null>") : std::wstring(query.m_str);
}

}  // namespace

TEST(PrintTicketQueryBuilder, ChainsFeatureOptionAndValue) {
    PrintTicketQueryBuilder builder(L"psf:");
    builder.AddFeature(L"psk:", L"PageMediaSize");
    builder.AddChildOptionName(L"psk:", L"NorthAmericaLetter");
    builder.AddValue();
    EXPECT_EQ(QueryOf(builder),
              L"//psf:Feature[@name = \"psk:PageMediaSize\"]"
              L"/psf:Option[@name = \"psk:NorthAmericaLetter\"]/psf:Value");
}

TEST(PrintTicketQueryBuilder, EveryStepTemplateUsesTheElementPrefix) {
    struct Case {
        void (PrintTicketQueryBuilder::*add)(const wchar_t*, const wchar_t*);
        const wchar_t* expected;
    };
    const Case cases[] = {
        {&PrintTicketQueryBuilder::AddFeature, L"//p:Feature[@name = \"k:N\"]"},
        {&PrintTicketQueryBuilder::AddProperty, L"//p:Property[@name = \"k:N\"]"},
        {&PrintTicketQueryBuilder::AddChildProperty, L"/p:Property[@name = \"k:N\"]"},
        {&PrintTicketQueryBuilder::AddChildPropertyValue, L"/p:Property[@name = \"k:N\"]/p:Value"},
        {&PrintTicketQueryBuilder::AddScoredProperty, L"//p:ScoredProperty[@name = \"k:N\"]"},
        {&PrintTicketQueryBuilder::AddParameterRef, L"//p:ParameterRef[@name = \"k:N\"]"},
        {&PrintTicketQueryBuilder::AddParameterDef, L"//p:ParameterDef[@name = \"k:N\"]"},
        {&PrintTicketQueryBuilder::AddParameterInit, L"//p:ParameterInit[@name = \"k:N\"]"},
        {&PrintTicketQueryBuilder::AddChildOptionName, L"/p:Option[@name = \"k:N\"]"},
    };
    for (const Case& c : cases) {
        PrintTicketQueryBuilder builder(L"p:");
        (builder.*c.add)(L"k:", L"N");
        EXPECT_EQ(QueryOf(builder), c.expected);
    }
}

TEST(PrintTicketQueryBuilder, EmptyNamePrefixUsesTheLocalNameAlone) {
    PrintTicketQueryBuilder builder(L"psf:");
    builder.AddFeature(L"", L"psk:JobCopiesAllDocuments");
    builder.AddParameterRef(nullptr, L"ns0000:Param");
    EXPECT_EQ(QueryOf(builder),
              L"//psf:Feature[@name = \"psk:JobCopiesAllDocuments\"]"
              L"//psf:ParameterRef[@name = \"ns0000:Param\"]");
}

TEST(PrintTicketQueryBuilder, AddOptionIsAUnionRootedAtThePreviousQuery) {
    PrintTicketQueryBuilder builder(L"psf:");
    builder.AddFeature(L"psk:", L"PageMediaSize");
    builder.AddOption(L"psk:");
    EXPECT_EQ(QueryOf(builder),
              L"//psf:Feature[@name = \"psk:PageMediaSize\"]/psf:Option | "
              L"//psf:Feature[@name = \"psk:PageMediaSize\"]"
              L"/psf:ScoredProperty[@name = \"psk:OptionName\"]/psf:Value");
}

TEST(PrintTicketQueryBuilder, AddOptionOnAnEmptyQueryStartsBothBranchesAtTheRoot) {
    PrintTicketQueryBuilder builder(L"psf:");
    builder.AddOption(L"PageOrientation");
    EXPECT_EQ(QueryOf(builder),
              L"/psf:Option | /psf:ScoredProperty[@name = \"PageOrientationOptionName\"]"
              L"/psf:Value");
}

TEST(PrintTicketQueryBuilder, InitialQueryIsExtended) {
    PrintTicketQueryBuilder builder(L"psf:", L".");
    builder.AddChildOptionName(L"psk:", L"ISOA4");
    EXPECT_EQ(QueryOf(builder), L"./psf:Option[@name = \"psk:ISOA4\"]");
}

TEST(PrintTicketQueryBuilder, WithoutPrefixEveryAddThrowsEFailAndLeavesTheQuery) {
    for (const wchar_t* prefix : {static_cast<const wchar_t*>(nullptr), L""}) {
        PrintTicketQueryBuilder builder(prefix, L"//x");
        EXPECT_EQ(ThrownHresult([&] { builder.AddFeature(L"psk:", L"A"); }), E_FAIL);
        EXPECT_EQ(ThrownHresult([&] { builder.AddValue(); }), E_FAIL);
        EXPECT_EQ(ThrownHresult([&] { builder.AddOption(L"psk:"); }), E_FAIL);
        EXPECT_EQ(ThrownHresult([&] { builder.AddChildOptionName(L"psk:", L"A"); }), E_FAIL);
        EXPECT_EQ(QueryOf(builder), L"//x");
    }
}

TEST(PrintTicketQueryBuilder, ClearedQueryIsNullAndPrefixStays) {
    PrintTicketQueryBuilder builder(L"psf:");
    EXPECT_EQ(QueryOf(builder), L"<null>");
    builder.AddValue();
    builder.Clear();
    EXPECT_EQ(QueryOf(builder), L"<null>");
    builder.AddValue();
    EXPECT_EQ(QueryOf(builder), L"/psf:Value");
}

TEST(PrintTicketQueryBuilder, GetQueryFreesWhatTheCallerPassedAndRejectsNull) {
    PrintTicketQueryBuilder builder(L"psf:");
    builder.AddValue();
    BSTR query = ::SysAllocString(L"stale");  // freed by GetQuery (the leak checker would see it)
    builder.GetQuery(&query);
    EXPECT_STREQ(query, L"/psf:Value");
    ::SysFreeString(query);
    EXPECT_EQ(ThrownHresult([&] { builder.GetQuery(nullptr); }), E_POINTER);
}

TEST(PrintTicketQueryBuilder, CopiesAreIndependent) {
    PrintTicketQueryBuilder original(L"psf:");
    original.AddFeature(L"psk:", L"A");
    PrintTicketQueryBuilder copy(original);
    copy.AddValue();
    PrintTicketQueryBuilder assigned(L"other:");
    assigned = original;
    assigned.Clear();
    EXPECT_EQ(QueryOf(original), L"//psf:Feature[@name = \"psk:A\"]");
    EXPECT_EQ(QueryOf(copy), L"//psf:Feature[@name = \"psk:A\"]/psf:Value");
    assigned.AddValue();
    EXPECT_EQ(QueryOf(assigned), L"/psf:Value");
}
