// utilities.h: the whole utility library in one include.
#pragma once

#include "support/utilities/cxstring.h"
#include "support/utilities/bytebuffer.h"
#include "support/utilities/zorunutilities.h"
#include "support/utilities/debugmessages.h"
#include "support/utilities/executioncontext.h"
#include "support/utilities/exceptions.h"
