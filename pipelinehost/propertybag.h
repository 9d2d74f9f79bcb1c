// propertybag.h: the pipeline property bag. One bag per job holds the job facts
// ("PrinterName", "PrintJobId", "PrinterHandle", "UserSecurityToken", "PerUserPrintTicket")
// and whatever filters add. Each filter sees it through its own view, which answers the
// filter's configuration parameters first (as VT_BSTR values) and the job bag otherwise;
// AddProperty and DeleteProperty through a view act on the job bag, so filters can still pass
// values to each other.
#pragma once

#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "platform/com/atl.h"
#include "platform/com/comobject.h"
#include "platform/printpipeline/filterpipeline.h"

namespace pipelinehost {

class PropertyBag final : public platform::ComObject<IPrintPipelinePropertyBag> {
public:
    PropertyBag() = default;

    // A copy of the value (the caller clears it); E_ELEMENT_NOT_FOUND when absent.
    HRESULT AddProperty(const wchar_t* name, const VARIANT* value) override;
    HRESULT GetProperty(const wchar_t* name, VARIANT* value) override;
    BOOL DeleteProperty(const wchar_t* name) override;

private:
    std::mutex m_mutex;
    std::map<std::wstring, CComVariant> m_values;
};

class FilterPropertyBag final : public platform::ComObject<IPrintPipelinePropertyBag> {
public:
    FilterPropertyBag(CComPtr<IPrintPipelinePropertyBag> job,
                      std::vector<std::pair<std::wstring, std::wstring>> parameters);

    HRESULT AddProperty(const wchar_t* name, const VARIANT* value) override;
    HRESULT GetProperty(const wchar_t* name, VARIANT* value) override;
    BOOL DeleteProperty(const wchar_t* name) override;

private:
    CComPtr<IPrintPipelinePropertyBag> m_job;
    std::map<std::wstring, std::wstring> m_parameters;
};

}  // namespace pipelinehost
