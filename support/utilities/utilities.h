// utilities.h: the whole utility library in one include.
#pragma once

#include "support/utilities/cxstring.h"
#include "support/utilities/bytebuffer.h"
#include "support/utilities/zorunutilities.h"
#include "support/utilities/debugmessages.h"
#include "support/utilities/executioncontext.h"
#include "support/utilities/exceptions.h"
#include "support/utilities/crc32.h"
#include "support/utilities/number.h"
#include "support/utilities/dimension.h"
#include "support/utilities/utf8ini.h"
#include "support/utilities/user.h"
#include "support/utilities/printer.h"
#include "support/utilities/printdriver.h"
#include "support/utilities/setthreadtokenwrapper.h"
