#include "ConnectionSetting.h"

#include "Console.h"
#include "orvCommon/DefaultSettings.h"

namespace Orv::CLI {

namespace {

// The messages of one retry value; %1 in "stored" is the value.
struct RetryTexts
{
    const char* notNumber;
    const char* notPositive;
    const char* stored;
};

constexpr RetryTexts kCountTexts{
    QT_TR_NOOP("Connection retry count exceeds maximum value or is not a number.\n"),
    QT_TR_NOOP("Connection retry count must be greater than zero.\n"),
    QT_TR_NOOP("Connection retry count is set to: %1.\n")};
constexpr RetryTexts kIntervalTexts{
    QT_TR_NOOP("Connection retry interval exceeds maximum value or is not a number.\n"),
    QT_TR_NOOP("Connection retry interval must be greater than zero.\n"),
    QT_TR_NOOP("Connection retry interval is set to: %1 (msec).\n")};

} // namespace

ConnectionSetting::ConnectionSetting(SettingCommandType type, QObject* parent)
    : BaseSetting(QStringLiteral("connection"), QStringLiteral("Connection settings"), type,
                  parent),
      m_countOption(QStringLiteral("retry-count"), QStringLiteral("Retry count value"),
                    QStringLiteral("retryCount")),
      m_intervalOption(QStringLiteral("retry-interval"),
                       QStringLiteral("Retry interval in milliseconds"),
                       QStringLiteral("retryInterval"))
{
    registerOption(m_countOption);
    registerOption(m_intervalOption);
}

int ConnectionSetting::process(const QStringList& args)
{
    return run(args);
}

bool ConnectionSetting::readOptions()
{
    return setOptionalOption(m_countOption, m_count) &&
           setOptionalOption(m_intervalOption, m_interval);
}

bool ConnectionSetting::getOption()
{
    DefaultSettings* store = DefaultSettings::instance();
    print(tr("Connection settings:\n    retry count:     %1\n    retry interval:  %2 (msec)\n")
              .arg(store->getConnectionRetryAttempts(), store->getConnectionRetryInterval()));
    return true;
}

bool ConnectionSetting::setOption()
{
    if (!given(m_countOption) && !given(m_intervalOption)) {
        print(tr("connection [-retryCount <value>] [-retryInterval <msec>]\n\t-retryCount "
                 "<value>:       Retry count\n\t-retryInterval <msec>: Retry interval, "
                 "milliseconds\n"));
        return false;
    }
    struct Retry
    {
        const QCommandLineOption& option;
        const QVariant& text;
        RetryTexts texts;
        bool (DefaultSettings::*write)(const QString&);
        int value = 0;
    };
    Retry retries[] = {
        {m_countOption, m_count, kCountTexts, &DefaultSettings::setConnectionRetryAttempts},
        {m_intervalOption, m_interval, kIntervalTexts,
         &DefaultSettings::setConnectionRetryInterval},
    };
    for (Retry& retry : retries) {
        if (!given(retry.option))
            continue;
        bool ok = false;
        retry.value = retry.text.toString().toInt(&ok);
        if (!ok) {
            print(tr(retry.texts.notNumber));
            return false;
        }
        if (retry.value <= 0) {
            print(tr(retry.texts.notPositive));
            return false;
        }
    }
    DefaultSettings* store = DefaultSettings::instance();
    for (const Retry& retry : retries) {
        if (!given(retry.option))
            continue;
        const QString text = QString::number(retry.value);
        if (!outputResult((store->*retry.write)(text)))
            return false;
        print(tr(retry.texts.stored).arg(text));
    }
    return true;
}

} // namespace Orv::CLI
