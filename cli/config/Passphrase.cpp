#include "Passphrase.h"

#include "Console.h"

#include <QTextStream>
#include <cstdio>
#include <termios.h>
#include <unistd.h>

namespace Orv::CLI::Passphrase {

namespace {

QString readLine()
{
    QTextStream in(stdin);
    return in.readLine();
}

// Echo is off only while the line is typed, and back on whatever happens.
QString readHidden(const QString& prompt)
{
    print(prompt);
    termios saved{};
    const bool terminal = ::tcgetattr(STDIN_FILENO, &saved) == 0;
    if (terminal) {
        termios quiet = saved;
        quiet.c_lflag &= ~tcflag_t(ECHO);
        ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet);
    }
    const QString line = readLine();
    if (terminal)
        ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &saved);
    print(QStringLiteral("\n"));
    return line;
}

} // namespace

QString read(const QString& prompt, bool confirm)
{
    if (!::isatty(STDIN_FILENO))
        return readLine();
    const QString first = readHidden(prompt);
    if (confirm && !first.isEmpty() &&
        readHidden(QStringLiteral("Repeat the passphrase: ")) != first)
        throw QStringLiteral("The passphrases do not match");
    return first;
}

} // namespace Orv::CLI::Passphrase
