#pragma once

#include "orvCommon/Communication/ICommand.h"
#include "orvCommon/Communication/Manager.h"
#include "orvCommon/Communication/V2Command.h"

#include <QJsonObject>
#include <QLoggingCategory>
#include <QScopedPointer>
#include <QSharedPointer>
#include <QTimer>

#include <functional>

Q_DECLARE_LOGGING_CATEGORY(lcChannelCli)

// The one way commands talk to the service. Sending connects all three ending
// signals of the library command to one result slot of the caller; the result
// slot judges the reply with the functions below. Every failure is thrown as a
// QString, which the caller turns into error(message) at the end of its slot.
namespace Orv::CLI::CommandChannel {

using ICommand = Orv::Common::Communication::ICommand;
using TypedCommand = Orv::Common::Communication::V2::Command;

inline const QString kManagerMissing = QStringLiteral("Communication manager is 0x00");
inline const QString kNotRegistered = QStringLiteral("Communication command not registered");
inline const QString kInternalError = QStringLiteral("Internal error");
inline const QString kInvalidResponse =
    QStringLiteral("Internal error: invalid command response format.\n");
inline const QString kReplyFormatError = QStringLiteral("Local command reply format error");
inline const QString kRetryWarning =
    QStringLiteral("GetConnection command return need retry... timeout 1 min");
// A request that changes an account reached the service, which then closed
// the connection without answering: the change may have been made.
inline const QString kAccountOutcomeUnknown = QStringLiteral(
    "The backup service closed the connection before answering: whether the change was made "
    "is unknown. Check with \"account list\" before trying again.\n");

// Throws kAccountOutcomeUnknown when the command ended so.
template <typename Command> void throwIfOutcomeUnknown(const Command* command)
{
    if (command->isError() && command->isOutcomeUnknown())
        throw kAccountOutcomeUnknown;
}

// The request document of a named command: {"params": params}.
QJsonDocument namedRequest(const QJsonObject& params);

template <typename Receiver>
void sendNamed(const QString& name, const QJsonObject& params, Receiver* receiver,
               void (Receiver::*slot)(), const QString& notRegistered = kNotRegistered)
{
    QPointer<Orv::Common::Communication::Manager> manager =
        Orv::Common::Communication::Manager::instance();
    if (!manager)
        throw kManagerMissing;
    ICommand* command = manager->commandFactory(name);
    if (!command)
        throw notRegistered;
    command->setRequest(namedRequest(params));
    QObject::connect(command, &ICommand::complite, receiver, slot);
    QObject::connect(command, &ICommand::error, receiver, slot);
    QObject::connect(command, &ICommand::timeout, receiver, slot);
    command->exec();
}

template <typename Receiver>
void sendTyped(const QUuid& commandId, QSharedPointer<TypedCommand::Request> request,
               Receiver* receiver, void (Receiver::*slot)(),
               const QString& notRegistered = kNotRegistered)
{
    QPointer<Orv::Common::Communication::Manager> manager =
        Orv::Common::Communication::Manager::instance();
    if (!manager)
        throw kManagerMissing;
    TypedCommand* command = manager->commandFactoryV2(commandId);
    if (!command)
        throw notRegistered;
    command->setRequest(std::move(request));
    QObject::connect(command, &TypedCommand::complite, receiver, slot);
    QObject::connect(command, &TypedCommand::error, receiver, slot);
    QObject::connect(command, &TypedCommand::timeout, receiver, slot);
    command->exec();
}

// Judges a finished named command and returns the object under "data".
QJsonObject namedReplyData(ICommand* command);

// Sends a named command that changes an account and whose reply tells
// nothing but whether it worked: done() or failed(message) runs, in
// context's thread, when the exchange ends. A command that cannot be sent
// throws like sendNamed().
void sendNamedStatus(const QString& name, const QJsonObject& params, QObject* context,
                     const std::function<void()>& done,
                     const std::function<void(const QString&)>& failed,
                     const QString& notRegistered = kNotRegistered);

// Judges a finished typed command. Status 5 logs the retry warning, schedules
// resend after the retry delay and returns null: the run goes on waiting.
QSharedPointer<TypedCommand::Response> typedResponseBase(TypedCommand* command, QObject* context,
                                                         const std::function<void()>& resend);

template <typename ResponseT>
QSharedPointer<ResponseT> typedResponse(TypedCommand* command, QObject* context,
                                        const std::function<void()>& resend)
{
    const QSharedPointer<TypedCommand::Response> base =
        typedResponseBase(command, context, resend);
    if (command->status() != TypedCommand::Done)
        return {};
    QSharedPointer<ResponseT> response = base.template dynamicCast<ResponseT>();
    if (!response)
        throw kInvalidResponse;
    return response;
}

// Sends a named command and waits for it on a local event loop, for shared
// look-ups that must return a value to their caller. A timeout of 0 is the
// manager's default.
QJsonObject blockingExchange(const QString& name, const QJsonObject& params, int timeoutMs = 0);

} // namespace Orv::CLI::CommandChannel
