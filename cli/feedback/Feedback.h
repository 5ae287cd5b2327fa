#pragma once

#include <QString>

// The diagnostic archive: the client's logs, its plans and accounts with every
// secret hidden, a summary and system reports. The service writes it (it alone
// reads the accounts and plans and can hide their secrets) and uploads it; the
// command line names the file, asks, and reports. Every failure is printed
// where it happens; the functions then return false.
namespace Orv::CLI::Feedback {

// Writes "Logs_<local date and time>.zip" into the folder path names ("~"
// stands for the home folder), creating the folder when needed.
bool saveLog(QString& path);
// Writes an archive and uploads it to the support service; with local, the
// archive is also kept in the current folder.
bool sendLog(const QString& user, const QString& email, const QString& message, bool local);

bool standaloneSendLog(const QString& user, const QString& email, const QString& message,
                       const QString& archive);
bool tarnSendLog(const QString& user, const QString& email, const QString& message,
                 const QString& archive);

} // namespace Orv::CLI::Feedback
