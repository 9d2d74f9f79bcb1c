// com.h: everything of the COM stand-in in one include.
#pragma once

#include "platform/com/wintypes.h"
#include "platform/com/guid.h"
#include "platform/com/unknown.h"
#include "platform/com/bstr.h"
#include "platform/com/variant.h"
#include "platform/com/comruntime.h"
#include "platform/com/atl.h"
