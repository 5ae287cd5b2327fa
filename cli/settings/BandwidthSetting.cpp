#include "BandwidthSetting.h"

#include <QDebug>

#include "Console.h"
#include "orvCommon/DefaultSettings.h"

namespace Orv::CLI {

namespace {

const QString kUnlimited = QStringLiteral("-1");

} // namespace

BandwidthSetting::BandwidthSetting(SettingCommandType type, BandwidthType bandwidthType,
                                   QObject* parent)
    : BaseSetting(bandwidthType == BandwidthType::Cloud ? QStringLiteral("bandwidthcloud")
                                                        : QStringLiteral("bandwidthlocal"),
                  bandwidthType == BandwidthType::Cloud
                      ? QStringLiteral("Bandwidth on backup to cloud storages")
                      : QStringLiteral("Bandwidth on backup to local storages"),
                  type, parent),
      m_bandwidthType(bandwidthType),
      m_limitOption(QStringList{QStringLiteral("l"), QStringLiteral("limit")},
                    QStringLiteral("u(unlimited), value in KB/sec"),
                    QStringLiteral("bandwidthLimit"))
{
    registerOption(m_limitOption);
}

int BandwidthSetting::process(const QStringList& args)
{
    return run(args);
}

bool BandwidthSetting::readOptions()
{
    return setOptionalOption(m_limitOption, m_limit);
}

bool BandwidthSetting::getOption()
{
    DefaultSettings* store = DefaultSettings::instance();
    const QString stored = isCloud() ? store->getCloudBandwidth() : store->getLocalBandwidth();
    const qint64 limit = stored.toLongLong();
    const QString label = isCloud() ? tr("Cloud") : tr("Local");
    if (limit < 1) {
        print(label + tr(" bandwidth: ") + tr("Unlimited\n"));
        return true;
    }
    print(label + tr(" bandwidth: ") + QString::number(limit) + tr(" KB/sec\n"));
    return true;
}

bool BandwidthSetting::setOption()
{
    const QString limit = m_limit.toString();
    if (limit.isEmpty()) {
        print(tr("orv option -set ") +
              (isCloud() ? QStringLiteral("cloud") : QStringLiteral("local")) +
              tr(" -b limit\n\t-b Bandwidth for a plan. Possible values: u(unlimited), value in "
                 "KB/sec\n"));
        return false;
    }
    QString stored = limit;
    if (limit.compare(QLatin1String("u"), Qt::CaseInsensitive) == 0 ||
        limit.compare(QLatin1String("unlimited"), Qt::CaseInsensitive) == 0) {
        stored = kUnlimited;
    } else {
        bool ok = false;
        limit.toULongLong(&ok);
        if (!ok) {
            print(tr("Wrong Bandwidth specified!\n"));
            return outputResult(false);
        }
    }
    DefaultSettings* store = DefaultSettings::instance();
    const bool saved =
        isCloud() ? store->setCloudBandwidth(stored) : store->setLocalBandwidth(stored);
    // The command reports success whatever the write gave; the log keeps the
    // failure for whoever wonders why the limit did not change.
    if (!saved)
        qWarning().noquote() << "Bandwidth limit could not be written to the settings store";
    return outputResult(true);
}

} // namespace Orv::CLI
