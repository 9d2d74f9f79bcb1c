// win32.h: every Win32 stand-in in one include.
#pragma once

#include "platform/win32/kernel.h"
#include "platform/win32/debugoutput.h"
#include "platform/win32/format.h"
#include "platform/win32/crt.h"
#include "platform/win32/stringapiset.h"
#include "platform/win32/shlwapi.h"
#include "platform/win32/security.h"
#include "platform/win32/gdiplus.h"
#include "platform/win32/profile.h"
#include "platform/win32/winspool.h"
