// filterregistry.h: how the host turns a configured filter into an IPrintPipelineFilter.
// Built-in names are registered by the program that runs the host (so the host does not depend
// on any filter library). A shared object is loaded with dlopen and must export the entry point
// declared by filterpipeline/filterutilities/filtermodule.h, CreatePipelineFilter. Loaded
// modules stay loaded until the FilterModules object that loaded them is destroyed, after the
// filters are released.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "filterpipeline/filterutilities/filtermodule.h"
#include "platform/com/atl.h"
#include "platform/printpipeline/filterpipeline.h"
#include "pipelinehost/pipelineconfig.h"

namespace pipelinehost {

using FilterFactory = std::function<HRESULT(IPrintPipelineFilter** filter)>;

class FilterRegistry {
public:
    void AddBuiltin(const std::string& name, FilterFactory factory);
    bool HasBuiltin(const std::string& name) const;
    std::vector<std::string> BuiltinNames() const;

private:
    friend class FilterModules;
    std::map<std::string, FilterFactory> m_builtins;
};

// Creates the filters of one job, keeping the modules they came from loaded.
class FilterModules {
public:
    FilterModules() = default;
    ~FilterModules();
    FilterModules(const FilterModules&) = delete;
    FilterModules& operator=(const FilterModules&) = delete;

    // Throws JobError(Config) when the filter cannot be made.
    CComPtr<IPrintPipelineFilter> Create(const FilterRegistry& registry,
                                         const FilterEntry& filterEntry);

private:
    std::map<std::string, void*> m_modules;
};

}  // namespace pipelinehost
