#include "CommandStorageDeepSync.h"

#include "Console.h"

namespace Orv::CLI {

using StartDeepSync = Orv::Common::Communication::V2::Repository::StartDeepSync;

CommandStorageDeepSync::CommandStorageDeepSync(QObject* parent)
    : CommandStorage(QStringLiteral("deep-sync"), QStringLiteral("storage deepsync"), false,
                     parent),
      m_passwordOption(QStringLiteral("password"), QStringLiteral("Encryption password"),
                       QStringLiteral("password"))
{
    addOption(m_passwordOption);
}

bool CommandStorageDeepSync::checkOwnOptions()
{
    QVariant generation;
    return checkMandatoryParams(m_bunchOption, m_bunchIdOption) &&
           setMandatoryOption(m_generationOption, generation);
}

void CommandStorageDeepSync::accountFound()
{
    fetchBunches([this](const QList<Bunch>& bunches) {
        const Bunch bunch = selectedBunch(bunches);
        fetchGenerations(bunch, [this, bunch](const QList<Generation>& generations) {
            synchronize(bunch, selectedGeneration(generations));
        });
    });
}

void CommandStorageDeepSync::synchronize(const Bunch& bunch, const Generation& generation)
{
    if (!generation.deepSync()) {
        print(QStringLiteral("Generation does not need synchronization\n"));
        emit finished(DontShow);
        return;
    }
    const QSharedPointer<Request> request = newRequest(&bunch, &generation);
    if (generation.isEncrypted() && !isSet(m_passwordOption)) {
        print(QStringLiteral("Need password.\n"));
        throw QStringLiteral("Hint: ") + decodedHint(generation) + QStringLiteral("\n");
    }
    // A password is taken as typed: blanks may be part of it.
    if (isSet(m_passwordOption))
        request->setPassword(m_parser.value(m_passwordOption));
    sendAction(StartDeepSync::CommandId, request, [this] {
        print(QStringLiteral("Deep sync success.\n"));
        emit finished(DontShow);
    });
}

} // namespace Orv::CLI
