#pragma once

#include "orvInfo/PlanObject.h"

#include <QObject>
#include <QSharedPointer>
#include <QUuid>
#include <QVariant>

namespace Orv::CLI {

// Finds one plan of the service's plan list by its id or by its display name.
// The exchange ends with finished() when exactly one plan matched, and with
// error(message) otherwise; a service that asks to try later is asked again
// after the retry delay, without limit.
class LoadPlanObject : public QObject
{
    Q_OBJECT
public:
    enum class Type
    {
        Id,
        Name
    };

    explicit LoadPlanObject(const QUuid& id, QObject* parent = nullptr);
    explicit LoadPlanObject(const QString& name, QObject* parent = nullptr);
    // The value is a QUuid (or its text) for Type::Id, a name for Type::Name.
    LoadPlanObject(const QVariant& value, Type type, QObject* parent = nullptr);

    // Sends the request. False, with error() already emitted, when it could
    // not be sent: a caller that waits on a local loop must not start it then.
    bool exec();
    // exec() and a local event loop until the exchange ends. True when the
    // plan was found; otherwise the reason is in errorString().
    bool execAndWait();

    // The plan found; null until finished().
    QSharedPointer<Orv::Info::PlanObject> planObject() const { return m_plan; }
    // More than one plan bears the name that was asked for.
    bool sameNames() const { return m_sameNames; }
    QString errorString() const { return m_errorString; }

    static const QString kSameNames;

signals:
    void finished();
    void error(const QString& message);

private slots:
    void onGetPlanListResult();

private:
    // First the list without the plans' XML (names and ids are enough to
    // choose), then the chosen plan's whole row: with many plans the list
    // would otherwise carry every plan's document.
    void send();
    void pick(const QJsonArray& plans);
    void fail(const QString& message);

    Type m_type;
    QUuid m_id;
    QString m_name;
    QSharedPointer<Orv::Info::PlanObject> m_plan;
    // The plan chosen from the slim list, whose whole row is asked for next.
    QUuid m_chosen;
    bool m_sameNames = false;
    QString m_errorString;
};

} // namespace Orv::CLI
