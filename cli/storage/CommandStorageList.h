#pragma once

#include "CommandStorage.h"

namespace Orv::CLI {

// "storage list": the tree of an account, from its bunches down to the
// generations, the restore points ("all" or the one "restore" names) and
// the content of a folder of a restore point ("path").
class CommandStorageList : public CommandStorage
{
    Q_OBJECT
public:
    explicit CommandStorageList(QObject* parent = nullptr);

protected:
    void accountFound() override;

private:
    void listNextBunch();
    void listNextGeneration();
    void listNextRestorePoint();
    void listContent(int offset);
    // Ends the run; an object the options named but the walk never met is an error.
    void finish();
    QString generationLine(const Generation& generation) const;
    static QString restorePointLine(const RestorePoint& point);
    bool showsRestorePoints() const;

    QList<Bunch> m_bunches;
    QList<Generation> m_generations;
    QList<RestorePoint> m_points;
    Bunch m_bunch;
    Generation m_generation;
    RestorePoint m_point;
    int m_shown = 0;
    bool m_generationMet = false;
    bool m_restorePointMet = false;
};

} // namespace Orv::CLI
