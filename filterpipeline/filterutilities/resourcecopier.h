// resourcecopier.h: CResourceCopier attaches every resource part of one fixed page to another,
// sharing the parts (nothing is written or copied byte-wise).
#pragma once

#include "platform/com/com.h"
#include "platform/printpipeline/filterpipeline.h"

class CResourceCopier {
public:
    CResourceCopier() = default;
    virtual ~CResourceCopier() = default;

    HRESULT CopyPageResources(const IFixedPage* from, IFixedPage* to);
};
