#pragma once

#include "CommandBase.h"
#include "account/CommandType.h"

namespace Orv::CLI {

// A command that holds named sub-items: dispatch walks them word by word and
// the same tree prints the help listings. The map is sorted, so listings show
// items in ascending order of their names whatever order they were added in.
class CommandGroupBase : public CommandBase
{
    Q_OBJECT
public:
    CommandGroupBase(const QString& name, const QString& description, QObject* parent = nullptr,
                     bool viewItemsHelp = true);

    void addSubItem(QSharedPointer<CommandBase> item);
    int process(const QStringList& words) override;
    QString help() const override;
    void subitemsHelp(const QSharedPointer<CommandBase>& item) const;
    // Fills an "account add" or "account edit" group with one command per
    // account type: file system always; the others only with allAccountTypes,
    // the deprecated ones only when the settings ask for every type too.
    void accountCreateGroup(CommandType mode, bool allAccountTypes);

public slots:
    void onCommandFinished(Orv::CLI::CommandBase::ShowSuccess show);
    void onCommandError(const QString& message);

private:
    void printListing() const;
};

} // namespace Orv::CLI
