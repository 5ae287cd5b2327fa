#include "orvInfo/Plan/Base.h"

#include "orvInfo/Plan/PlanXml.h"

namespace Orv::Info::Plan {

Base::Base(PlanType type, PlanSubtype subtype)
    : m_id(QUuid::createUuid()), m_type(type), m_subtype(subtype)
{
}

QString Base::toXml(SecretForm form, QString* error) const
{
    const QDomDocument document = toDocument(form, error);
    return document.isNull() ? QString() : document.toString(2);
}

QDomDocument Base::toDocument(SecretForm form, QString* error) const
{
    return PlanXml::write(*this, form, error);
}

const WordTable<bool>& Base::formatWords()
{
    static const WordTable<bool> table{{"cbf", false}, {"nbf", true}};
    return table;
}

} // namespace Orv::Info::Plan
