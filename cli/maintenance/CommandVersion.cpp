#include "CommandVersion.h"

#include "Console.h"
#include "kelCore/Version.h"

namespace Orv::CLI {

CommandVersion::CommandVersion(QObject* parent)
    : CommandBase(QStringLiteral("version"), QStringLiteral("Show product version"), parent)
{
}

int CommandVersion::process(const QStringList& words)
{
    if (!words.isEmpty() && isHelpWord(words.first())) {
        helpMessageExt();
        return HelpShown;
    }
    print(QStringLiteral("Version: ") + Kel::Core::Version::string() + QStringLiteral("\n"));
    return HelpShown;
}

} // namespace Orv::CLI
