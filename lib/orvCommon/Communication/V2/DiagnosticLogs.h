#pragma once

#include "orvCommon/Communication/V2Command.h"

#include <QJsonObject>
#include <QString>

namespace Orv::Common::Communication::V2::Diagnostics {

// Uploads a diagnostic bundle the service wrote (see SaveDiagnosticLogs) to
// the maker's support service, with the sender's name, address and message;
// the response is the support case the upload opened.
class SendLogs
{
public:
    inline static const QUuid CommandId{QStringLiteral("{3f0f2c6e-8d41-4c57-9a1e-52b7c9d0e4a8}")};

    class Request : public Command::Request
    {
    public:
        void setPath(const QString& path) { m_path = path; }
        QString path() const { return m_path; }
        void setUser(const QString& user) { m_user = user; }
        QString user() const { return m_user; }
        void setEmail(const QString& email) { m_email = email; }
        QString email() const { return m_email; }
        void setMessage(const QString& message) { m_message = message; }
        QString message() const { return m_message; }

        QJsonObject toJson() const override
        {
            return {{QStringLiteral("path"), m_path},
                    {QStringLiteral("user"), m_user},
                    {QStringLiteral("email"), m_email},
                    {QStringLiteral("message"), m_message}};
        }
        bool fromJson(const QJsonObject& object) override
        {
            const QJsonValue path = object.value(QStringLiteral("path"));
            if (!path.isString() || path.toString().isEmpty())
                return false;
            m_path = path.toString();
            m_user = object.value(QStringLiteral("user")).toString();
            m_email = object.value(QStringLiteral("email")).toString();
            m_message = object.value(QStringLiteral("message")).toString();
            return true;
        }

    private:
        QString m_path;
        QString m_user;
        QString m_email;
        QString m_message;
    };

    class Response : public Command::Response
    {
    public:
        void setCaseId(const QString& caseId) { m_caseId = caseId; }
        QString caseId() const { return m_caseId; }

        QJsonObject toJson() const override { return {{QStringLiteral("caseId"), m_caseId}}; }
        bool fromJson(const QJsonObject& object) override
        {
            const QJsonValue caseId = object.value(QStringLiteral("caseId"));
            if (!caseId.isString())
                return false;
            m_caseId = caseId.toString();
            return true;
        }

    private:
        QString m_caseId;
    };

    using Command = TypedCommand<Request, Response>;
};

} // namespace Orv::Common::Communication::V2::Diagnostics
