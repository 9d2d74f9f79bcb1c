// user.h: User, the calling user's directories. The application directory of a component
// follows the XDG base directory rules: $XDG_CONFIG_HOME/<component> when XDG_CONFIG_HOME is an
// absolute path, else <home>/.config/<component>, where home is $HOME or, without it, the home
// directory of the user's passwd entry. Nothing is created.
#pragma once

#include "support/utilities/cxstring.h"

class User {
public:
    explicit User(CXString componentName);
    ~User();

    // The directory, without a trailing separator. Throws ExceptionUserFailure when no home
    // directory can be found.
    CXString GetUserApplicationDirectory();

private:
    CXString m_componentName;
};
