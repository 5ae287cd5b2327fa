#include "FileSystemAccount.h"

#include <QDir>

namespace Orv::CLI {

FileSystemAccount::FileSystemAccount(const QString& name, CommandType mode, QObject* parent)
    : BaseAccount(name, mode, parent)
{
    addOption(m_folderPathOption, true);
    addOption(m_prefixOption, true);
}

int FileSystemAccount::initParams()
{
    QVariant path;
    if (isAdd() ? !setMandatoryOption(m_folderPathOption, path)
                : !setOptionalOption(m_folderPathOption, path))
        return Error;
    if (path.isValid())
        checkPath(path.toString());
    return Continue;
}

void FileSystemAccount::onErrorAddAccountResult(const QString& message)
{
    // Only an empty folder goes: never anything the storage held.
    if (!m_createdFolder.isEmpty())
        QDir().rmdir(m_createdFolder);
    m_createdFolder.clear();
    BaseAccount::onErrorAddAccountResult(message);
}

} // namespace Orv::CLI
