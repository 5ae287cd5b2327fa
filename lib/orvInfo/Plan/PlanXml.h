#pragma once

#include "orvInfo/Plan/Base.h"

#include <QDomDocument>
#include <QSharedPointer>
#include <QString>

namespace Orv::Info::Plan {

// The XML form of a plan, the one the files of config/plans/ hold and the
// service and the command line exchange:
//
//   <Plan Version="1" ID="{uuid}" Name="..." Type="Backup" Subtype="File"
//         Storage="{uuid}">
//     <AccountId>{uuid}</AccountId>
//     <IsArchive>false</IsArchive>
//     <Schedule><Enabled>true</Enabled><Type>Recurring</Type>...</Schedule>
//     ...
//   </Plan>
//
// The root's attributes are those the plan list reads without loading the
// plan (PlanObject::fromPlanXml). Every field is one child element whose text
// is the value: booleans "true"/"false", numbers in decimal, enumerations by
// their words (the algorithm of the encryption, whose numbers include one
// without a word, by number), times and dates in ISO 8601 with milliseconds
// (local time unless the value carries an offset or is UTC), an empty element
// for a null date or id, lists as <Item> children, the hint in Base64. Attribute
// order follows Qt's serialiser and may differ between two writes. A text that XML
// cannot carry exactly (control characters, a carriage return, blanks only)
// is written as Base64 of its UTF-8 with Encoding="base64".
//
// Reading is lenient about what it does not know and strict about what it
// does: unknown elements are ignored and missing ones keep the class's
// default, so that plans written by earlier and later minor revisions load;
// a value that does not parse, or a Version above ours, refuses the document.
//
// Passwords are <Password Form="sealed|plain|masked">: see Base::SecretForm.
// A masked document is refused, since its passwords are gone.
class PlanXml
{
public:
    // The version written, and the highest one read.
    static constexpr int Version = 1;

    static QDomDocument write(const Base& plan, Base::SecretForm form, QString* error);
    static QSharedPointer<Base> read(const QDomDocument& document, QString* error);
};

} // namespace Orv::Info::Plan
