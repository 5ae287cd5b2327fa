#pragma once

#include "BaseSetting.h"

namespace Orv::CLI {

// Which bandwidth limit a BandwidthSetting serves.
enum class BandwidthType
{
    Cloud = 0,
    Local = 1
};

// "bandwidthcloud" and "bandwidthlocal": the upload limit for backups to cloud
// or to local storages, in KB/sec, "-1" meaning unlimited.
class BandwidthSetting : public BaseSetting
{
    Q_OBJECT
public:
    BandwidthSetting(SettingCommandType type, BandwidthType bandwidthType,
                     QObject* parent = nullptr);

    int process(const QStringList& args) override;

protected:
    bool readOptions() override;
    bool setOption() override;
    bool getOption() override;

private:
    bool isCloud() const { return m_bandwidthType == BandwidthType::Cloud; }

    BandwidthType m_bandwidthType;
    QCommandLineOption m_limitOption;
    QVariant m_limit;
};

} // namespace Orv::CLI
