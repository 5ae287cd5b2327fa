#include "service/trust/SslStoreHandler.h"

#include "orvCommon/Communication/Format.h"
#include "orvCommon/Communication/NotificationTypes.h"
#include "service/ServiceLog.h"
#include "service/channel/HandlerRegistry.h"
#include "service/trust/TrustedStore.h"

#include <QCoreApplication>
#include <QJsonArray>

namespace Orv::Service {

namespace Ssl = Orv::Common::Communication::Commands::Format::Ssl;
namespace Change = Orv::Common::Communication::Notification::Format::SslStorageChange;

void SslStoreHandler::install(HandlerRegistry& registry)
{
    registry.addNamed(QLatin1String(Ssl::ReadFromStorage::Name), [this](const QJsonObject&,
                                                                        const RequestContext&) {
        return NamedOutcome::success({{QLatin1String(Ssl::ReadFromStorage::Reply::Certificates),
                                       QJsonArray::fromStringList(m_store.certificates())}});
    });
    addChange(registry, Ssl::AppendToStorage::Name, &TrustedStore::append);
    addChange(registry, Ssl::WriteToStorage::Name, &TrustedStore::write);
    addChange(registry, Ssl::RemoveFromStorage::Name, &TrustedStore::remove);

    registry.addNamedAsync(
        QLatin1String(Ssl::GetPeerCertificate::Name),
        [this](const QJsonObject& params, const RequestContext&, const NamedResponder& responder) {
            const QString endpoint =
                params.value(QLatin1String(Ssl::GetPeerCertificate::Request::Endpoint))
                    .toString()
                    .trimmed();
            if (endpoint.isEmpty()) {
                responder.failure(QStringLiteral("No endpoint given"));
                return;
            }
            // The answer goes out from the main thread, where the connections live.
            QObject* main = QCoreApplication::instance();
            m_pool.start([fetch = m_fetch, endpoint, responder, main]() mutable {
                QString error;
                const QByteArray pem = fetch(endpoint, &error);
                QMetaObject::invokeMethod(
                    main,
                    [responder = std::move(responder), pem, error] {
                        if (pem.isEmpty()) {
                            responder.failure(error);
                            return;
                        }
                        responder.success({{QLatin1String(Ssl::Success), true},
                                           {QLatin1String(Ssl::Pem), QString::fromLatin1(pem)}});
                    },
                    Qt::QueuedConnection);
            });
        });
}

void SslStoreHandler::addChange(HandlerRegistry& registry, const char* name, Change change)
{
    registry.addNamed(QLatin1String(name), [this, change, name](const QJsonObject& params,
                                                                const RequestContext&) {
        bool changed = false;
        const QString error =
            (m_store.*change)(params.value(QLatin1String(Ssl::Pem)).toString().toUtf8(), &changed);
        if (!error.isEmpty()) {
            qCWarning(lcService).noquote() << name << "refused:" << error;
            return NamedOutcome::failure(error);
        }
        if (changed) {
            qCInfo(lcService).noquote() << "Trusted certificates changed by" << name;
            m_broadcast(Change::Type,
                        {{QLatin1String(Change::Pem), QString::fromLatin1(m_store.pem())}});
        }
        return NamedOutcome::success({{QLatin1String(Ssl::Success), true}});
    });
}

} // namespace Orv::Service
