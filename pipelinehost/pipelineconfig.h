// pipelineconfig.h: the pipeline configuration file, modelled on the Windows filter pipeline
// configuration. It names the filters in order:
//
//   <Filters>
//     <Filter name="pass" builtin="passthrough"/>
//     <Filter name="stamp" dll="libstamp.so" class="Stamp">
//       <Parameter name="Text" value="DRAFT"/>
//     </Filter>
//   </Filters>
//
// The root may also be <Filter_Pipeline_Config> holding <Filters>. Each Filter has a name and
// exactly one of builtin (a name the tool registered) or dll (a shared object, relative paths
// against the configuration file's folder); class is passed to the shared object's factory.
// Parameter children become properties in that filter's view of the property bag. Other
// attributes and children (clsid, Input, Output) are accepted and ignored.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace pipelinehost {

struct FilterEntry {
    std::string name;
    std::string builtin;
    std::string dll;  // resolved path
    std::string className;
    std::vector<std::pair<std::string, std::string>> parameters;
};

struct PipelineConfig {
    std::vector<FilterEntry> filters;
};

// Throws JobError(Config) naming the problem.
PipelineConfig LoadPipelineConfig(const std::string& path);
PipelineConfig ParsePipelineConfig(const std::string& xml, const std::string& baseDirectory);
// The pipeline used when none is given: the built-in "passthrough" filter alone.
PipelineConfig DefaultPipelineConfig();

}  // namespace pipelinehost
