#pragma once

#include "orvInfo/Plan/WordTable.h"

#include <QString>

namespace Orv::Info::Plan {

// The e-mail sent after a run. By default only a failed run is reported, with
// the short report; an empty subject lets the service use its own.
class Notification
{
public:
    enum class Type
    {
        Off = 0,
        On = 1,
        ErrorOnly = 2,
    };

    // Whether any run is reported (the type is not Off).
    bool isEnabled() const { return m_type != Type::Off; }
    Type type() const { return m_type; }
    void setType(Type type) { m_type = type; }
    // May hold %COMPUTER_NAME%, %RESULT% and %PLAN_NAME%.
    QString subject() const { return m_subject; }
    void setSubject(const QString& subject) { m_subject = subject; }
    bool generateDetailedReport() const { return m_detailedReport; }
    void setGenerateDetailedReport(bool detailed) { m_detailedReport = detailed; }

    // "on", "off", "error-only".
    static const WordTable<Type>& words();

private:
    Type m_type = Type::ErrorOnly;
    QString m_subject;
    bool m_detailedReport = false;
};

} // namespace Orv::Info::Plan
