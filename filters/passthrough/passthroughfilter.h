// passthroughfilter.h: PassThroughFilter, the filter that overrides nothing: every part goes
// through XpsFilterBase's default handlers (the sequence's and each document's ticket installed
// in the ticket manager) and on to the next filter unchanged.
#pragma once

#include "filterpipeline/filterutilities/xpsfilterbase.h"

class PassThroughFilter : public XpsFilterBase {};

// Creates a pass-through filter (count 1, owned by the caller).
HRESULT CreatePassThroughFilter(IPrintPipelineFilter** filter);
