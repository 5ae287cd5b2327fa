#include "kelCloud/GoogleAuth.h"

namespace Kel::Cloud {

const QMap<QString, GoogleAuth::Type>& GoogleAuth::TypeValue()
{
    static const QMap<QString, Type> values{{QStringLiteral("AccessKey"), AccessKey},
                                            {QStringLiteral("ServiceAcc"), ServiceAcc},
                                            {QStringLiteral("InstallApp"), InstallApp}};
    return values;
}

const QMap<GoogleAuth::Type, QString>& GoogleAuth::TypeName()
{
    static const QMap<Type, QString> names{{AccessKey, QStringLiteral("AccessKey")},
                                           {ServiceAcc, QStringLiteral("ServiceAcc")},
                                           {InstallApp, QStringLiteral("InstallApp")}};
    return names;
}

bool GoogleAuth::parse(const QString& text, Type* type)
{
    const QString trimmed = text.trimmed();
    if (trimmed.isEmpty()) {
        *type = AccessKey;
        return true;
    }
    if (TypeValue().contains(trimmed)) {
        *type = TypeValue().value(trimmed);
        return true;
    }
    bool number = false;
    const int value = trimmed.toInt(&number);
    // Checked as a number: an enum holds only its own values.
    if (!number || value < AccessKey || value > InstallApp)
        return false;
    *type = static_cast<Type>(value);
    return true;
}

} // namespace Kel::Cloud
