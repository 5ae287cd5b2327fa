#pragma once

#include <QString>
#include <QVersionNumber>

namespace Kel::Core {

// The version of this build, fixed at compile time.
class Version
{
public:
    static QString string();
    static QVersionNumber number();
};

} // namespace Kel::Core
