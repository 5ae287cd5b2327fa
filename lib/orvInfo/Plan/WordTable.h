#pragma once

#include <QMap>
#include <QString>
#include <QStringList>
#include <QVector>
#include <initializer_list>
#include <optional>
#include <utility>

namespace Orv::Info::Plan {

// A fixed table from word to enumeration value, in the order the words are
// offered to the user. Matching is exact (case-sensitive): the command line
// refuses "Hot" for "hot" as it refuses any other unknown word. The plan's XML
// form stores enumerations by these words too, so that renumbering a value
// never changes the meaning of a stored plan.
template <typename E> class WordTable
{
public:
    WordTable(std::initializer_list<std::pair<const char*, E>> entries)
    {
        for (const auto& entry : entries)
            m_entries.append({QString::fromLatin1(entry.first), entry.second});
    }

    std::optional<E> value(const QString& word) const
    {
        for (const auto& entry : m_entries) {
            if (entry.first == word)
                return entry.second;
        }
        return std::nullopt;
    }

    // The first word of the value; empty when the table has none.
    QString word(E value) const
    {
        for (const auto& entry : m_entries) {
            if (entry.second == value)
                return entry.first;
        }
        return QString();
    }

    QStringList words() const
    {
        QStringList all;
        for (const auto& entry : m_entries)
            all.append(entry.first);
        return all;
    }

    QMap<QString, E> toMap() const
    {
        QMap<QString, E> map;
        for (const auto& entry : m_entries)
            map.insert(entry.first, entry.second);
        return map;
    }

private:
    QVector<QPair<QString, E>> m_entries;
};

} // namespace Orv::Info::Plan
