#pragma once

#include <QString>

namespace Orv::Info::Plan {

// A password held by a plan.
//
// A plan read from its stored form carries its passwords sealed with the
// instance's local key. Where the key can be read (the service) the seal is
// opened and the plan holds the password itself. Where it cannot (a command
// line run by a user without access to the key file) the sealed text is kept
// as it is: text() gives that sealed text, so the plan still counts as having
// a password, and every form written from the plan carries the same sealed
// text back unchanged, so that an edit made there never loses the password.
class Secret
{
public:
    Secret() = default;
    explicit Secret(const QString& plain) : m_text(plain) {}
    static Secret unopened(const QString& sealed)
    {
        Secret secret(sealed);
        secret.m_sealed = sealed;
        return secret;
    }

    QString text() const { return m_text; }
    bool isEmpty() const { return m_text.isEmpty(); }
    // True while the value is still the sealed text that could not be opened.
    bool isUnopened() const { return !m_sealed.isEmpty() && m_text == m_sealed; }

    bool operator==(const Secret& other) const
    {
        return m_text == other.m_text && isUnopened() == other.isUnopened();
    }
    bool operator!=(const Secret& other) const { return !(*this == other); }

private:
    QString m_text;
    QString m_sealed;
};

} // namespace Orv::Info::Plan
