#include "orvInfo/Plan/Factory.h"

#include "orvInfo/Plan/PlanXml.h"

namespace Orv::Info::Plan {

QSharedPointer<Base> Factory::create(const QString& xml, QString* error)
{
    QDomDocument document;
    QString message;
    int line = 0;
    int column = 0;
    if (!document.setContent(xml, &message, &line, &column)) {
        if (error) {
            *error = QStringLiteral("the plan is not well-formed XML (line %1, column %2: %3)")
                         .arg(line)
                         .arg(column)
                         .arg(message);
        }
        return {};
    }
    return create(document, error);
}

QSharedPointer<Base> Factory::create(const QDomDocument& document, QString* error)
{
    return PlanXml::read(document, error);
}

} // namespace Orv::Info::Plan
