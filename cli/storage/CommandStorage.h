#pragma once

#include "CommandBase.h"
#include "orvCommon/Communication/V2/RepositoryCommands.h"
#include "orvInfo/Repository/Objects.h"

#include <QDateTime>
#include <QList>
#include <QUuid>
#include <functional>

namespace Orv::CLI {

// Base of the storage commands: the options that name an account, a bunch,
// a generation and (for browsing) a restore point and a folder in it, and the
// walk down that tree. Each step is one typed request to the service; a step
// the service asks to try later is sent again after the retry delay, and any
// other failure ends the run through error().
class CommandStorage : public CommandBase
{
    Q_OBJECT
public:
    int process(const QStringList& words) override;

protected:
    using Bunch = Orv::Info::Repository::Bunch;
    using Generation = Orv::Info::Repository::Generation;
    using RestorePoint = Orv::Info::Repository::RestorePoint;
    using ContentObject = Orv::Info::Repository::ContentObject;
    using Request = Orv::Common::Communication::V2::Repository::RepositoryRequest;
    using ListResponse = Orv::Common::Communication::V2::Repository::ListResponse;

    // browsing adds the options that only the listing uses: restore point,
    // path, limit, offset, "all" and "hint". The other commands act on a bunch
    // or a generation and stop there.
    CommandStorage(const QString& name, const QString& description, bool browsing,
                   QObject* parent = nullptr);

    // Checks of the command's own options, after the shared ones; prints its
    // message and returns false to refuse the command line.
    virtual bool checkOwnOptions() { return true; }
    // The account was found (accountName(), the connection id in requests):
    // the command walks on from here. Throws a QString to end with an error.
    virtual void accountFound() = 0;

    // Starts the walk at the account.
    void storageList();

    // The steps below the account. Each hands its objects to next() in the
    // order the service gave them; next() may throw a QString.
    void fetchBunches(const std::function<void(const QList<Bunch>&)>& next);
    void fetchGenerations(const Bunch& bunch,
                          const std::function<void(const QList<Generation>&)>& next);
    void fetchRestorePoints(const Bunch& bunch, const Generation& generation,
                            const std::function<void(const QList<RestorePoint>&)>& next);
    // One page of a folder of a restore point.
    void
    fetchContent(const Bunch& bunch, const Generation& generation, const RestorePoint& point,
                 int limit, int offset,
                 const std::function<void(const QList<ContentObject>&, const ListResponse&)>& next);
    // A request that carries out a change and answers nothing but its status.
    void sendAction(const QUuid& commandId, const QSharedPointer<Request>& request,
                    const std::function<void()>& done);
    // A request naming the account, and as far down as the arguments go.
    QSharedPointer<Request> newRequest(const Bunch* bunch = nullptr,
                                       const Generation* generation = nullptr) const;

    // Whether the objects are the ones the options name; everything matches
    // an option that was not given.
    bool isSelectedBunch(const Bunch& bunch) const;
    bool isSelectedGeneration(const Generation& generation) const;
    bool isSelectedRestorePoint(const RestorePoint& point) const;
    // The one bunch or generation named by the options, for the commands that
    // act on one; throws when there is none.
    Bunch selectedBunch(const QList<Bunch>& bunches) const;
    Generation selectedGeneration(const QList<Generation>& generations) const;

    QString accountName() const { return m_accountName; }
    bool isSet(const QCommandLineOption& option) const { return m_parser.isSet(option); }
    QString valueOf(const QCommandLineOption& option) const
    {
        return m_parser.value(option).trimmed();
    }

    // Local time in the system locale's short form.
    static QString timeText(const QDateTime& time);
    static QString decodedHint(const Generation& generation);

    QCommandLineOption m_accountOption;
    QCommandLineOption m_accountIdOption;
    QCommandLineOption m_bunchOption;
    QCommandLineOption m_bunchIdOption;
    QCommandLineOption m_generationOption;
    QCommandLineOption m_restoreOption;
    QCommandLineOption m_pathOption;
    QCommandLineOption m_limitOption;
    QCommandLineOption m_offsetOption;
    QCommandLineOption m_allOption;
    QCommandLineOption m_hintOption;
    // 0: no limit.
    int m_limit = 0;
    int m_offset = 0;
    // The minute the "restore" option names, in local time; invalid when not given.
    QDateTime m_restoreTime;

private:
    using Response = Orv::Common::Communication::V2::Command::Response;
    using Handler = std::function<void(const QSharedPointer<Response>&)>;

    struct Texts
    {
        QString managerMissing;
        QString notRegistered;
    };

    bool checkSharedOptions();
    bool readLimitAndOffset();
    bool readRestoreTime();
    void send(const QUuid& commandId,
              const QSharedPointer<Orv::Common::Communication::V2::Command::Request>& request,
              const Texts& texts, const Handler& next);
    void fetchList(const QUuid& commandId, const QSharedPointer<Request>& request,
                   const std::function<void(const ListResponse&)>& next,
                   const Texts& texts = kStepTexts);
    void onAccountList(const QSharedPointer<Response>& response);

    static const Texts kStepTexts;
    bool m_browsing = false;
    QString m_accountName;
    QUuid m_connectionId;
};

} // namespace Orv::CLI
