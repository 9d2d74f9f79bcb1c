// propertybag.cpp: the job property bag and the per-filter view with parameters.
#include "pipelinehost/propertybag.h"

namespace pipelinehost {

HRESULT PropertyBag::AddProperty(const wchar_t* name, const VARIANT* value) {
    if (name == nullptr || value == nullptr) return E_POINTER;
    try {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_values[name] = *value;
        return S_OK;
    } catch (const CAtlException& e) {
        return e.m_hr;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

HRESULT PropertyBag::GetProperty(const wchar_t* name, VARIANT* value) {
    if (name == nullptr || value == nullptr) return E_POINTER;
    VariantInit(value);
    std::lock_guard<std::mutex> lock(m_mutex);
    auto found = m_values.find(name);
    if (found == m_values.end()) return E_ELEMENT_NOT_FOUND;
    return VariantCopy(value, &found->second);
}

BOOL PropertyBag::DeleteProperty(const wchar_t* name) {
    if (name == nullptr) return FALSE;
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_values.erase(name) != 0 ? TRUE : FALSE;
}

FilterPropertyBag::FilterPropertyBag(CComPtr<IPrintPipelinePropertyBag> job,
                                     std::vector<std::pair<std::wstring, std::wstring>> parameters)
    : m_job(std::move(job)) {
    for (auto& [name, value] : parameters) m_parameters[name] = value;
}

HRESULT FilterPropertyBag::AddProperty(const wchar_t* name, const VARIANT* value) {
    return m_job->AddProperty(name, value);
}

HRESULT FilterPropertyBag::GetProperty(const wchar_t* name, VARIANT* value) {
    if (name == nullptr || value == nullptr) return E_POINTER;
    auto found = m_parameters.find(name);
    if (found == m_parameters.end()) return m_job->GetProperty(name, value);
    VariantInit(value);
    value->bstrVal = SysAllocString(found->second.c_str());
    if (value->bstrVal == nullptr) return E_OUTOFMEMORY;
    value->vt = VT_BSTR;
    return S_OK;
}

BOOL FilterPropertyBag::DeleteProperty(const wchar_t* name) {
    return m_job->DeleteProperty(name);
}

}  // namespace pipelinehost
