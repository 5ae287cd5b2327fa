#include "service/jobs/PlanRun.h"

#include "orvRepository/Generation.h"
#include "service/ServiceLog.h"
#include "service/engine/Archiver.h"
#include "service/engine/CurrentArchiver.h"
#include "service/engine/CurrentBrowser.h"
#include "service/engine/CurrentRestorer.h"
#include "service/engine/Restorer.h"

#include <QElapsedTimer>
#include <QLocale>
#include <QProcess>

namespace Orv::Service {

namespace {

using Orv::Info::Plan::PlanResult;

// Action output beyond this many lines is counted, not logged.
constexpr int kActionLogLines = 200;

QString size(quint64 bytes)
{
    return QLocale::c().formattedDataSize(qint64(bytes), 1, QLocale::DataSizeTraditionalFormat);
}

PlanResult resultOf(Orv::Engine::RunResult::Outcome outcome)
{
    switch (outcome) {
    case Orv::Engine::RunResult::Outcome::Success:
        return PlanResult(PlanResult::Success);
    case Orv::Engine::RunResult::Outcome::Warning:
        return PlanResult(PlanResult::Warning);
    case Orv::Engine::RunResult::Outcome::Failure:
        break;
    }
    return PlanResult(PlanResult::Failed);
}

void logOutput(const QString& planName, const char* which, const QByteArray& output)
{
    const QList<QByteArray> lines = output.split('\n');
    int logged = 0;
    for (const QByteArray& line : lines) {
        if (line.trimmed().isEmpty())
            continue;
        if (++logged > kActionLogLines)
            continue;
        qCInfo(lcService).noquote()
            << QStringLiteral("Plan \"%1\" %2: %3")
                   .arg(planName, QLatin1String(which), QString::fromLocal8Bit(line));
    }
    if (logged > kActionLogLines)
        qCInfo(lcService).noquote() << QStringLiteral("Plan \"%1\" %2: %3 more line(s) not logged")
                                           .arg(planName, QLatin1String(which))
                                           .arg(logged - kActionLogLines);
}

} // namespace

PlanRun::PlanRun(RunRequest request) : m_request(std::move(request)) {}

PlanRun::~PlanRun() = default;

void PlanRun::setStep(Step step)
{
    m_step = int(step);
}

void PlanRun::stop()
{
    m_stop = true;
    QMutexLocker lock(&m_mutex);
    if (m_stopEngine)
        m_stopEngine();
}

bool PlanRun::runAction(const PlanAction& action, const char* which, QString* error)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.setStandardInputFile(QProcess::nullDevice());
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("ORV_PLAN_ID"),
                       m_request.planId.toString(QUuid::WithoutBraces));
    environment.insert(QStringLiteral("ORV_PLAN_NAME"), m_request.planName);
    process.setProcessEnvironment(environment);
    qCInfo(lcService).noquote() << QStringLiteral("Plan \"%1\" %2 starts: %3")
                                       .arg(m_request.planName, QLatin1String(which),
                                            action.program);
    process.start(action.program, action.arguments);
    if (!process.waitForStarted(10000)) {
        *error = QStringLiteral("The %1 %2 cannot start: %3")
                     .arg(QLatin1String(which), action.program, process.errorString());
        return false;
    }
    QElapsedTimer clock;
    clock.start();
    QByteArray output;
    while (!process.waitForFinished(100)) {
        output += process.readAll();
        if (m_stop || clock.elapsed() >= m_request.actionTimeoutMs) {
            process.kill();
            process.waitForFinished(5000);
            logOutput(m_request.planName, which, output + process.readAll());
            *error = m_stop ? QStringLiteral("The %1 was stopped").arg(QLatin1String(which))
                            : QStringLiteral("The %1 %2 did not end within %3 s and was stopped")
                                  .arg(QLatin1String(which), action.program)
                                  .arg(m_request.actionTimeoutMs / 1000);
            return false;
        }
    }
    logOutput(m_request.planName, which, output + process.readAll());
    if (process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0) {
        *error = QStringLiteral("The %1 %2 failed with exit code %3")
                     .arg(QLatin1String(which), action.program)
                     .arg(process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1);
        return false;
    }
    return true;
}

RunOutcome PlanRun::run()
{
    RunOutcome outcome;
    const PlanAction& pre = m_request.pre;
    if (pre.enabled) {
        setStep(Step::PreAction);
        QString error;
        if (!runAction(pre, "pre-action", &error)) {
            qCWarning(lcService).noquote()
                << QStringLiteral("Plan \"%1\": %2").arg(m_request.planName, error);
            if (pre.onFailure || m_stop) {
                outcome.result = PlanResult(m_stop ? PlanResult::Stopped : PlanResult::Failed);
                outcome.message = error;
                setStep(Step::Done);
                return outcome;
            }
            outcome.message = error;
            ++outcome.warnings;
        }
    }
    setStep(Step::Engine);
    const QString preProblem = outcome.message;
    const int preWarnings = outcome.warnings;
    outcome = m_request.restore ? runRestore() : runBackup();
    if (m_stop)
        outcome.result = PlanResult(PlanResult::Stopped);
    if (!preProblem.isEmpty()) {
        outcome.warnings += preWarnings;
        if (outcome.result == PlanResult(PlanResult::Success))
            outcome.result = PlanResult(PlanResult::Warning);
        outcome.message = outcome.message.isEmpty()
                              ? preProblem
                              : preProblem + QStringLiteral("; ") + outcome.message;
    }
    const PlanAction& post = m_request.post;
    const bool failed =
        outcome.result.isFailure() || outcome.result == PlanResult(PlanResult::Stopped);
    if (post.enabled && (!failed || post.onFailure) && !m_stop) {
        setStep(Step::PostAction);
        QString error;
        if (!runAction(post, "post-action", &error)) {
            qCWarning(lcService).noquote()
                << QStringLiteral("Plan \"%1\": %2").arg(m_request.planName, error);
            ++outcome.warnings;
            if (outcome.result == PlanResult(PlanResult::Success))
                outcome.result = PlanResult(PlanResult::Warning);
            outcome.message =
                outcome.message.isEmpty() ? error : outcome.message + QStringLiteral("; ") + error;
        }
    }
    setStep(Step::Done);
    return outcome;
}

template <typename Engine>
Orv::Engine::RunResult PlanRun::backUpWith(const Orv::Repository::Repository& repository)
{
    Engine engine(repository, m_request.backup);
    {
        QMutexLocker lock(&m_mutex);
        m_stopEngine = [&engine] { engine.stop(); };
        m_backupProgress = &engine.progress();
    }
    if (m_stop)
        engine.stop();
    Orv::Engine::RunResult result = engine.run();
    QMutexLocker lock(&m_mutex);
    m_stopEngine = nullptr;
    m_backupProgress = nullptr;
    m_lastFailed = qint64(engine.progress().filesFailed);
    return result;
}

RunOutcome PlanRun::runBackup()
{
    const Orv::Repository::Repository repository(m_request.location);
    const Orv::Engine::RunResult result = m_request.currentFormat
                                              ? backUpWith<Orv::Engine::CurrentArchiver>(repository)
                                              : backUpWith<Orv::Engine::Archiver>(repository);
    RunOutcome outcome;
    outcome.result = resultOf(result.outcome);
    outcome.message = result.message;
    outcome.files = qint64(result.files);
    outcome.bytes = qint64(result.bytes);
    outcome.uploaded = qint64(result.filesRead);
    outcome.failed = m_lastFailed;
    outcome.warnings = result.warnings;
    outcome.errors = result.errors;
    outcome.full = result.full;
    if (!m_request.notice.isEmpty() && !outcome.result.isFailure()) {
        ++outcome.warnings;
        if (outcome.result == PlanResult(PlanResult::Success))
            outcome.result = PlanResult(PlanResult::Warning);
        outcome.message = outcome.message.isEmpty()
                              ? m_request.notice
                              : outcome.message + QStringLiteral("; ") + m_request.notice;
    }
    // The new format checks the generation written into, the current one
    // the run just committed.
    const QString written = m_request.currentFormat ? result.point : result.generation;
    if (m_request.consistencyCheck && !m_stop && !outcome.result.isFailure() && !written.isEmpty())
        checkConsistency(repository, written, &outcome);
    return outcome;
}

void PlanRun::checkConsistency(const Orv::Repository::Repository& repository,
                               const QString& written, RunOutcome* outcome)
{
    setStep(Step::Checking);
    std::unique_ptr<Orv::Repository::Generation> generation;
    QStringList problems;
    Kel::Cloud::Status status;
    if (m_request.currentFormat) {
        status = Orv::Engine::CurrentBrowser(repository)
                     .checkPresence(m_request.backup.planId, m_request.backup.password, written,
                                    &problems);
    } else {
        status = Orv::Repository::Generation::open(repository, m_request.backup.planId, written,
                                                   m_request.backup.password, &generation);
        if (status.ok())
            status = generation->checkPresence(&problems);
    }
    if (!status.ok())
        problems.prepend(QStringLiteral("the check could not run: %1").arg(status.message));
    if (problems.isEmpty())
        return;
    qCWarning(lcService).noquote()
        << QStringLiteral("Plan \"%1\" consistency check:").arg(m_request.planName)
        << problems.join(QStringLiteral("; ")).left(4096);
    outcome->result = Orv::Info::Plan::PlanResult(Orv::Info::Plan::PlanResult::Warning);
    ++outcome->warnings;
    const QString found = QStringLiteral("Consistency check: %1 problem(s), the first: %2")
                              .arg(problems.size())
                              .arg(problems.first());
    outcome->message =
        outcome->message.isEmpty() ? found : outcome->message + QStringLiteral("; ") + found;
}

template <typename Engine>
Orv::Engine::RestoreResult PlanRun::restoreWith(const Orv::Repository::Repository& repository,
                                                const Orv::Engine::RestoreDescription& description)
{
    Engine engine(repository, description);
    {
        QMutexLocker lock(&m_mutex);
        m_stopEngine = [&engine] { engine.stop(); };
        m_filesRestored = &engine.filesDone;
        m_bytesRestored = &engine.bytesDone;
    }
    if (m_stop)
        engine.stop();
    Orv::Engine::RestoreResult result = engine.run();
    QMutexLocker lock(&m_mutex);
    m_stopEngine = nullptr;
    m_filesRestored = nullptr;
    m_bytesRestored = nullptr;
    return result;
}

QString PlanRun::currentPlans(const Orv::Repository::Repository& repository, QStringList* plans)
{
    if (!m_request.restoreDescription.bunch.isEmpty()) {
        *plans = QStringList{m_request.restoreDescription.bunch};
        return {};
    }
    *plans = m_request.currentPlans;
    if (!plans->isEmpty())
        return {};
    QList<Orv::Engine::CurrentPlanInfo> found;
    const Kel::Cloud::Status status = Orv::Engine::CurrentBrowser(repository).plans(&found, true);
    if (!status.ok())
        return status.message;
    for (const Orv::Engine::CurrentPlanInfo& plan : qAsConst(found))
        plans->append(plan.plan);
    return plans->isEmpty() ? QStringLiteral("The storage account holds no backup of the current "
                                             "format")
                            : QString();
}

RunOutcome PlanRun::runRestore()
{
    const Orv::Repository::Repository repository(m_request.location);
    if (m_request.syncBeforeRun && !m_request.currentFormat) {
        const QString problem = syncGenerations(repository);
        if (!problem.isEmpty()) {
            RunOutcome outcome;
            outcome.message = problem;
            return outcome;
        }
    }
    Orv::Engine::RestoreResult result;
    if (!m_request.currentFormat) {
        result = restoreWith<Orv::Engine::Restorer>(repository, m_request.restoreDescription);
    } else {
        // The current format keeps each backup plan's files apart: the state
        // asked for is that of the plan named, else of every such plan
        // writing to the account.
        QStringList plans;
        const QString problem = currentPlans(repository, &plans);
        result.ok = problem.isEmpty();
        result.message = problem;
        for (const QString& plan : qAsConst(plans)) {
            if (m_stop)
                break;
            Orv::Engine::RestoreDescription description = m_request.restoreDescription;
            description.bunch = plan;
            const Orv::Engine::RestoreResult part =
                restoreWith<Orv::Engine::CurrentRestorer>(repository, description);
            result.files += part.files;
            result.bytes += part.bytes;
            result.skipped += part.skipped;
            result.failed += part.failed;
            if (!part.ok) {
                result.ok = false;
                result.message = part.message;
            }
        }
    }
    RunOutcome outcome;
    outcome.files = qint64(result.files);
    outcome.bytes = qint64(result.bytes);
    outcome.failed = result.failed.size();
    outcome.message = result.message;
    if (!result.ok)
        outcome.result = PlanResult(PlanResult::Failed);
    else if (!result.failed.isEmpty())
        outcome.result = PlanResult(PlanResult::Warning);
    else
        outcome.result = PlanResult(PlanResult::Success);
    if (!result.failed.isEmpty() && outcome.message.isEmpty())
        outcome.message = QStringLiteral("%1 item(s) not restored, the first: %2")
                              .arg(result.failed.size())
                              .arg(result.failed.first());
    return outcome;
}

QString PlanRun::syncGenerations(const Orv::Repository::Repository& repository)
{
    setStep(Step::Syncing);
    const Orv::Engine::RestoreDescription& d = m_request.restoreDescription;
    QList<Orv::Repository::GenerationInfo> generations;
    Kel::Cloud::Status status = repository.generations(d.bunch, &generations);
    if (!status.ok())
        return QStringLiteral("The sync before the restore failed: %1").arg(status.message);
    for (const Orv::Repository::GenerationInfo& generation : qAsConst(generations)) {
        if (m_stop)
            break;
        if (!generation.needsDeepSync || (!d.generation.isEmpty() && generation.id != d.generation))
            continue;
        status = repository.deepSync(d.bunch, generation.id, d.password);
        if (!status.ok())
            return QStringLiteral("The sync of generation %1 before the restore failed: %2")
                .arg(generation.id, status.message);
    }
    setStep(Step::Engine);
    return {};
}

QString PlanRun::progressText() const
{
    switch (Step(int(m_step))) {
    case Step::Starting:
        return QStringLiteral("Starting");
    case Step::PreAction:
        return QStringLiteral("Running the pre-action");
    case Step::PostAction:
        return QStringLiteral("Running the post-action");
    case Step::Checking:
        return QStringLiteral("Checking the stored data");
    case Step::Syncing:
        return QStringLiteral("Synchronising with the storage");
    case Step::Done:
        return QStringLiteral("Finishing");
    case Step::Engine:
        break;
    }
    QMutexLocker lock(&m_mutex);
    if (m_filesRestored)
        return QStringLiteral("Restoring: %1 files, %2 written")
            .arg(m_filesRestored->load())
            .arg(size(*m_bytesRestored));
    if (!m_backupProgress)
        return QStringLiteral("Preparing");
    const Orv::Engine::RunProgress& p = *m_backupProgress;
    static const char* const steps[] = {"Preparing", "Reading", "Committing", "Applying retention",
                                        "Done"};
    const int step = qBound(0, p.step.load(), 4);
    return QStringLiteral("%1: %2 files (%3) seen, %4 files (%5) read, %6 uploaded, %7 failed")
        .arg(QLatin1String(steps[step]))
        .arg(p.filesSeen.load())
        .arg(size(p.bytesSeen))
        .arg(p.filesRead.load())
        .arg(size(p.bytesRead))
        .arg(size(p.bytesUploaded))
        .arg(p.filesFailed.load());
}

} // namespace Orv::Service
