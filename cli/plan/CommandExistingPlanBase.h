#pragma once

#include "CommandBase.h"
#include "orvInfo/PlanObject.h"

#include <QSharedPointer>
#include <functional>

namespace Orv::CLI {

// Base of the commands that act on one existing plan, named by "id" or by
// "name": it checks the two options, finds the plan through LoadPlanObject
// and hands it to planFound(). Every failure ends the run through error().
class CommandExistingPlanBase : public CommandBase
{
    Q_OBJECT
public:
    int process(const QStringList& words) override;

protected:
    // idDescription is the help text of "id"; refuseBoth refuses "id"
    // and "name" given together (otherwise "id" wins).
    CommandExistingPlanBase(const QString& name, const QString& description,
                            const QString& idDescription, bool refuseBoth,
                            QObject* parent = nullptr);

    // The plan was found. Throws a QString to end the run with that error.
    virtual void planFound(const QSharedPointer<Orv::Info::PlanObject>& plan) = 0;

    // Judges, inside a result slot, the reply to a typed command that carries
    // nothing but its status, and ends the run with finished(Show) when done.
    // A service that asks to try later gets resend() after the retry delay.
    void finishOnTypedResult(const std::function<void()>& resend);

private slots:
    void onLoadPlanObjectResult();

private:
    void findPlan();

    QCommandLineOption m_idOption;
    QCommandLineOption m_nameOption;
    bool m_refuseBoth;
};

} // namespace Orv::CLI
