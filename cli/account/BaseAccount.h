#pragma once

#include "CommandBase.h"
#include "CommandType.h"
#include "kelCloud/Operation.h"
#include "kelCloud/Types.h"

#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonObject>
#include <QSet>
#include <QUuid>
#include <QVariantMap>
#include <memory>
#include <optional>

namespace Orv::CLI {

// The add or edit command of one account type. It reads the common options
// and the type's own, builds the account configuration, checks it against
// the storage in this process (configuration check, then the container
// listing for types that keep data in a container), and only then asks the
// service to save the account. Nothing is saved when a check fails.
//
// Each asynchronous step waits on a local event loop. Failures after the
// options were accepted end the command through error(message).
class BaseAccount : public CommandBase
{
    Q_OBJECT
public:
    // Results of the steps of process(): those of the command base, and
    // Usage when the account is named wrongly (the application then prints
    // an empty line).
    enum Result
    {
        Done = 0,
        Error = 2,
        Usage = 3,
        Continue = 4
    };

    BaseAccount(const QString& name, CommandType mode, QObject* parent = nullptr);

    int process(const QStringList& words) override;

    // The account's data folder below a local folder, created when missing;
    // false (the command has failed) when it cannot be.
    bool checkPath(const QString& path);
    // The contents of a private key file; prints why and gives nothing when
    // it cannot be read.
    static std::optional<QString> convertPathToPrivateKey(const QString& path);
    // Runs the cloud library's configuration check, asking to trust an
    // unknown server certificate on the way.
    bool checkConfig();
    // Fetches the account being edited (with its secrets, for the check).
    bool getAccount();
    void updateAccount();

signals:
    void waitComplete();

protected:
    // Checks that must come before any option is read (conflicts).
    virtual int checkOptions() { return Continue; }
    // Reads the type's options into the configuration.
    virtual int initParams() { return Continue; }
    // The configuration to check and save.
    virtual QVariantMap cloudConfig() const;
    virtual bool listContainers();
    virtual bool checkContainer();

    bool isAdd() const { return m_mode == CommandType::Add; }
    // Reads an option into a configuration key: mandatory when adding (the
    // generic message names it when missing), optional when editing.
    bool readOption(const QCommandLineOption& option, const char* key, bool mandatory);
    // Reads a true/false option; the default applies when adding, or when the
    // account being edited does not have the key yet.
    bool readSwitch(const QCommandLineOption& option, const char* key, bool defaultValue);
    // Reads an option naming a key file, and the file's contents into the key.
    bool readKeyFile(const QCommandLineOption& option, const char* key, bool mandatory);
    void parseContainers(const QJsonArray& containers);
    // Ends the command with the message, once.
    void fail(const QString& message);

    CommandType m_mode;
    Kel::Cloud::Type m_type;
    QUuid m_id;
    QString m_accountName;
    QString m_displayName;
    QString m_prefix;
    QVariantMap m_config;
    QJsonObject m_existing;
    // The container the data goes to, and whether it is to be found in the
    // storage's listing before saving.
    QString m_container;
    bool m_listContainers = false;
    QJsonArray m_containers;
    // The data folder checkPath() made, if it made one.
    QString m_createdFolder;

    QCommandLineOption m_nameOption;
    QCommandLineOption m_newNameOption;
    QCommandLineOption m_idOption;
    QCommandLineOption m_prefixOption;
    QCommandLineOption m_sslOption;
    QCommandLineOption m_endpointOption;
    QCommandLineOption m_signatureOption;
    QCommandLineOption m_folderPathOption;

protected slots:
    virtual void onAddAccountResult();
    virtual void onErrorAddAccountResult(const QString& message);

private slots:
    void onGetAccountResult();

private:
    int chooseAccount();
    // The configuration as the checks hand it to the cloud library.
    QVariantMap backendConfig() const;
    void readPrefix();
    // Shows the server's certificate and asks whether to trust it; true when
    // it was added to the trusted store and the step may run again.
    bool trustCertificate(const Kel::Cloud::Operation& operation);
    // Operations of the cloud library are owned by whoever started them.
    struct LaterDeleter
    {
        void operator()(QObject* object) const { object->deleteLater(); }
    };
    using OperationPointer = std::unique_ptr<Kel::Cloud::Operation, LaterDeleter>;
    // Has the service run the operation ("check" or "list") on the
    // configuration and waits for it on a local event loop; the log gets the
    // step's duration. Null, after the reason was printed, when the service
    // could not be asked.
    OperationPointer runOperation(const char* kind, const char* step);
    // Takes what the library learnt into the configuration (a refresh token
    // for the one-time authorisation code it used), so that later steps and
    // the saved account use it.
    void keepConfigChanges(const Kel::Cloud::Operation& operation);

    QSet<QByteArray> m_trusted;
    QElapsedTimer m_saveTimer;
    bool m_ended = false;
};

} // namespace Orv::CLI
