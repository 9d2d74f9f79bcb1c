// filterregistry.cpp: built-in filter names and filters loaded from shared objects.
#include "pipelinehost/filterregistry.h"

#include <dlfcn.h>

#include "platform/com/unicode.h"
#include "pipelinehost/hosterror.h"

namespace pipelinehost {
namespace {

std::string Hex(HRESULT hr) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", static_cast<unsigned>(hr));
    return text;
}

}  // namespace

void FilterRegistry::AddBuiltin(const std::string& name, FilterFactory factory) {
    m_builtins[name] = std::move(factory);
}

bool FilterRegistry::HasBuiltin(const std::string& name) const {
    return m_builtins.count(name) != 0;
}

std::vector<std::string> FilterRegistry::BuiltinNames() const {
    std::vector<std::string> names;
    for (const auto& entry : m_builtins) names.push_back(entry.first);
    return names;
}

FilterModules::~FilterModules() {
    for (auto& entry : m_modules) dlclose(entry.second);
}

CComPtr<IPrintPipelineFilter> FilterModules::Create(const FilterRegistry& registry,
                                                    const FilterEntry& filterEntry) {
    CComPtr<IPrintPipelineFilter> filter;
    HRESULT hr = E_FAIL;
    if (!filterEntry.builtin.empty()) {
        auto found = registry.m_builtins.find(filterEntry.builtin);
        if (found == registry.m_builtins.end()) {
            std::string known;
            for (const auto& entry : registry.m_builtins) {
                known += (known.empty() ? "" : ", ") + entry.first;
            }
            throw JobError(ErrorKind::Config,
                           "filter \"" + filterEntry.name + "\": no built-in filter \"" +
                               filterEntry.builtin + "\" (built-in: " + known + ")");
        }
        try {
            hr = found->second(&filter);
        } catch (...) {
            hr = E_FAIL;
        }
    } else {
        void* module = nullptr;
        auto loaded = m_modules.find(filterEntry.dll);
        if (loaded != m_modules.end()) {
            module = loaded->second;
        } else {
            module = dlopen(filterEntry.dll.c_str(), RTLD_NOW | RTLD_LOCAL);
            if (module == nullptr) {
                const char* why = dlerror();
                throw JobError(ErrorKind::Config, "filter \"" + filterEntry.name +
                                                      "\": cannot load " + filterEntry.dll + ": " +
                                                      (why ? why : "?"));
            }
            m_modules[filterEntry.dll] = module;
        }
        auto factory = reinterpret_cast<CreatePipelineFilterFunction>(
            dlsym(module, FU_PIPELINE_FILTER_FACTORY));
        if (factory == nullptr) {
            throw JobError(ErrorKind::Config, "filter \"" + filterEntry.name +
                                                  "\": " + filterEntry.dll +
                                                  " does not export " FU_PIPELINE_FILTER_FACTORY);
        }
        std::wstring className = platform::Utf8ToWide(filterEntry.className);
        try {
            hr = factory(className.c_str(), &filter);
        } catch (...) {
            hr = E_FAIL;
        }
    }
    if (FAILED(hr) || !filter) {
        throw JobError(ErrorKind::Config, "filter \"" + filterEntry.name +
                                              "\" could not be created (" +
                                              Hex(FAILED(hr) ? hr : E_POINTER) + ")");
    }
    return filter;
}

}  // namespace pipelinehost
