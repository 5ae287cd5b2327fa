#pragma once

#include "CommandPlanBase.h"
#include "orvInfo/Repository/Objects.h"

#include <QDateTime>
#include <QList>

namespace Orv::CLI {

class LoadPlanObject;

// "plan create_restore": a new file restore plan from the options, handed to
// the service. A plan that restores from the new backup format names a bunch
// of the account; its restore points and generations are asked for first, so
// that the point, a pending deep sync, encrypted data and the paths to restore
// are checked before anything is saved. A restore-once plan is started as
// soon as the service has it, and deletes itself after a successful run.
//
// The edit command derives from this one for the same look-ups and setters.
class CommandCreateRestorePlan : public CommandPlanBase
{
    Q_OBJECT
public:
    explicit CommandCreateRestorePlan(QObject* parent = nullptr);

    int process(const QStringList& words) override;

    // A point in time as "dd.MM.yyyy hh:mm", or in the locale's short date
    // and time form read as local time (a two-digit year before 2000 is taken
    // a century later). Invalid when neither reads.
    static QDateTime parsePointInTime(const QString& text);

protected:
    CommandCreateRestorePlan(const QString& name, const QString& description, ActionType action,
                             QObject* parent);

    // The plan's account is known (m_accountId): loads the bunch's data when
    // the plan restores from the new format, then fillPlan(), the check of
    // the paths asked for, and sendPlan(). Ends with error() on failure.
    void loadRestoreSource();
    // Create and edit differ in these.
    virtual void accountResolved();
    // Whether the plan must be placed on a point of a bunch, and which bunch
    // (an id or a name) to look for.
    virtual bool restoresFromBunch() const;
    virtual QString bunchKey() const;
    // Fills m_plan from the options; throws the message.
    virtual void fillPlan();
    virtual void sendPlan();

    // Shared setters over m_plan; they throw the message.
    // "restore-point" or "latest-version" into the restore type.
    void setRestoreType();
    // Places the plan on the chosen point of the bunch (for the current
    // format, the newest run by its point in time).
    void initRestorePoint();
    // The paths of "path": kept as they are for the current format, checked
    // against the chosen point (after fillPlan()) for the new one.
    void setRestoreItems();
    // Everything after the point and the items, each only when given.
    void setRestoreOptions();
    // The mismatch of "format" and "bunch".
    void checkFormat(bool nbf) const;
    // Whether the bunch's data to restore is of the current format: the
    // format asked for, else the one the bunch holds (the new one when it
    // holds both). Throws when the bunch holds nothing of the format asked.
    bool bunchInCurrentFormat() const;

    Orv::Info::Plan::RestoreFile m_plan;
    QUuid m_accountId;
    QCommandLineOption m_pathOption;

private slots:
    void onAccountResolved();
    void onBunchListResult();
    void onRestorePointListResult();
    void onGenerationListResult();
    void onRestorePointPathsResult();
    void onCreatePlanResult();
    void onStartPlanResult();

private:
    void createRestorePlan();
    void initPlan();
    void loadBunchFromConnection(const QUuid& accountId);
    void loadBunchRestorePoints();
    void loadGenerationsFromBunch();
    void getRestorePointPaths(const QStringList& paths);
    // fillPlan(), then the paths or sendPlan(); error() on failure.
    void completePlan();
    void startPlan();
    void onLoadPlanObjectResult(LoadPlanObject& loader);
    // Whether the chosen point, or its generation, is encrypted or needs a
    // deep sync.
    bool pointEncrypted() const;
    bool pointNeedsDeepSync() const;

    QString m_bunchKey;
    Orv::Info::Repository::Bunch m_bunch;
    QList<Orv::Info::Repository::RestorePoint> m_points;
    QList<Orv::Info::Repository::Generation> m_generations;
    Orv::Info::Repository::RestorePoint m_point;
    bool m_pointChosen = false;
    QStringList m_pathsToCheck;
};

} // namespace Orv::CLI
