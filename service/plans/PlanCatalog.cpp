#include "service/plans/PlanCatalog.h"

#include "kelCore/AtomicFile.h"
#include "orvCommon/Communication/Format.h"
#include "orvInfo/Plan/Factory.h"
#include "orvInfo/PlanObject.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace Orv::Service {

namespace {

namespace Info = Orv::Common::Communication::Commands::Format::Plan::DataType::Info;

std::optional<QJsonObject> planRow(const QByteArray& contents, QString* error)
{
    const Orv::Info::PlanObject plan = Orv::Info::PlanObject::fromPlanXml(contents, error);
    if (!plan.isValid())
        return std::nullopt;
    return plan.toRow();
}

} // namespace

PlanCatalog::PlanCatalog(const QString& folder) : m_folder(folder, QStringLiteral(".xml"), &planRow)
{
}

QSharedPointer<Orv::Info::Plan::Base> PlanCatalog::load(const QUuid& id, QString* error)
{
    const QJsonArray all = rows();
    for (const QJsonValue& value : all) {
        const QJsonObject row = value.toObject();
        if (QUuid(row.value(QLatin1String(Info::ID)).toString()) != id)
            continue;
        QString reason;
        auto plan = Orv::Info::Plan::Factory::create(
            row.value(QLatin1String(Info::PlanXml)).toString(), &reason);
        if (!plan)
            *error = QStringLiteral("The plan %1 cannot be read: %2").arg(id.toString(), reason);
        return plan;
    }
    *error = QStringLiteral("No plan has the ID %1").arg(id.toString());
    return {};
}

QString PlanCatalog::save(const Orv::Info::Plan::Base& plan)
{
    QString error;
    const QString xml = plan.toXml(Orv::Info::Plan::Base::SecretForm::Sealed, &error);
    if (xml.isEmpty())
        return error.isEmpty() ? QStringLiteral("the plan cannot be written") : error;
    if (!QDir().mkpath(m_folder.path()))
        return QStringLiteral("cannot create the folder %1").arg(m_folder.path());
    QStringList others = filesOf(plan.id());
    others.removeAll(fileOf(plan.id()));
    error = Kel::Core::AtomicFile::write(fileOf(plan.id()), xml.toUtf8());
    if (!error.isEmpty())
        return error;
    for (const QString& file : others)
        if (!QFile::remove(file))
            return QStringLiteral("cannot remove %1").arg(file);
    return {};
}

QString PlanCatalog::remove(const QUuid& id)
{
    const QStringList files = filesOf(id);
    if (files.isEmpty())
        return QStringLiteral("No plan has the ID %1").arg(id.toString());
    for (const QString& file : files)
        if (!QFile::remove(file))
            return QStringLiteral("cannot remove %1").arg(file);
    return {};
}

QDateTime PlanCatalog::savedAt(const QUuid& id) const
{
    const QFileInfo file(fileOf(id));
    return file.exists() ? file.lastModified() : QDateTime();
}

QString PlanCatalog::fileOf(const QUuid& id) const
{
    return QDir(m_folder.path())
        .filePath(id.toString(QUuid::WithoutBraces) + QStringLiteral(".xml"));
}

QStringList PlanCatalog::filesOf(const QUuid& id)
{
    QStringList files;
    const QDir folder(m_folder.path());
    const QStringList names = folder.entryList({QStringLiteral("*.xml")}, QDir::Files);
    for (const QString& name : names) {
        QFile file(folder.filePath(name));
        if (file.size() > ConfigFolder::kMaxFileSize || !file.open(QIODevice::ReadOnly))
            continue;
        QString ignored;
        const auto plan = Orv::Info::PlanObject::fromPlanXml(file.readAll(), &ignored);
        if (plan.isValid() && plan.id() == id)
            files.append(file.fileName());
    }
    return files;
}

} // namespace Orv::Service
