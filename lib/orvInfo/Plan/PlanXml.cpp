#include "orvInfo/Plan/PlanXml.h"

#include "orvCommon/LocalSecret.h"
#include "orvInfo/Plan/BackupFile.h"
#include "orvInfo/Plan/RestoreFile.h"

#include <optional>
#include <type_traits>

namespace Orv::Info::Plan {

namespace {

const QString kTrue = QStringLiteral("true");
const QString kFalse = QStringLiteral("false");
const QString kTimeFormat = QStringLiteral("HH:mm:ss.zzz");
const QString kEncoding = QStringLiteral("Encoding");
const QString kBase64 = QStringLiteral("base64");
const QString kForm = QStringLiteral("Form");
const QString kMaskedText = QStringLiteral("****");

// Whether XML carries the text unchanged: no characters XML 1.0 forbids, no
// carriage return (parsers turn it into a line feed), and not blanks only
// (dropped as formatting when read).
bool carriesExactly(const QString& text)
{
    if (!text.isEmpty() && text.trimmed().isEmpty())
        return false;
    for (int i = 0; i < text.size(); ++i) {
        const ushort c = text.at(i).unicode();
        if (c == '\t' || c == '\n')
            continue;
        if (c < 0x20 || c == 0xfffe || c == 0xffff || QChar::isLowSurrogate(c))
            return false;
        if (QChar::isHighSurrogate(c)) {
            if (i + 1 >= text.size() || !QChar::isLowSurrogate(text.at(i + 1).unicode()))
                return false;
            ++i;
        }
    }
    return true;
}

QString secretFormWord(Base::SecretForm form)
{
    switch (form) {
    case Base::SecretForm::Sealed:
        return QStringLiteral("sealed");
    case Base::SecretForm::Masked:
        return QStringLiteral("masked");
    case Base::SecretForm::Plain:
        break;
    }
    return QStringLiteral("plain");
}

class Writer
{
public:
    Writer(QDomDocument& document, Base::SecretForm form) : m_document(document), m_form(form) {}

    bool ok() const { return m_error.isEmpty(); }
    QString error() const { return m_error; }

    QDomElement element(QDomElement& parent, const QString& name)
    {
        QDomElement child = m_document.createElement(name);
        parent.appendChild(child);
        return child;
    }

    void text(QDomElement& parent, const QString& name, const QString& value)
    {
        QDomElement child = element(parent, name);
        fill(child, value);
    }

    void fill(QDomElement& element, const QString& value)
    {
        if (carriesExactly(value)) {
            if (!value.isEmpty())
                element.appendChild(m_document.createTextNode(value));
        } else {
            element.setAttribute(kEncoding, kBase64);
            element.appendChild(
                m_document.createTextNode(QString::fromLatin1(value.toUtf8().toBase64())));
        }
    }

    void put(QDomElement& parent, const QString& name, bool value)
    {
        text(parent, name, value ? kTrue : kFalse);
    }
    void put(QDomElement& parent, const QString& name, int value)
    {
        text(parent, name, QString::number(value));
    }
    void put(QDomElement& parent, const QString& name, quint64 value)
    {
        text(parent, name, QString::number(value));
    }
    void put(QDomElement& parent, const QString& name, const QString& value)
    {
        text(parent, name, value);
    }
    void put(QDomElement& parent, const QString& name, const QUuid& value)
    {
        text(parent, name, value.isNull() ? QString() : value.toString());
    }
    void put(QDomElement& parent, const QString& name, const QDateTime& value)
    {
        text(parent, name, value.isValid() ? value.toString(Qt::ISODateWithMs) : QString());
    }
    void put(QDomElement& parent, const QString& name, const QDate& value)
    {
        text(parent, name, value.isValid() ? value.toString(Qt::ISODate) : QString());
    }
    void put(QDomElement& parent, const QString& name, const QTime& value)
    {
        text(parent, name, value.isValid() ? value.toString(kTimeFormat) : QString());
    }
    void put(QDomElement& parent, const QString& name, const QByteArray& value)
    {
        text(parent, name, QString::fromLatin1(value.toBase64()));
    }
    void put(QDomElement& parent, const QString& name, const QBitArray& value)
    {
        QString bits;
        for (int i = 0; i < value.size(); ++i)
            bits.append(value.testBit(i) ? QLatin1Char('1') : QLatin1Char('0'));
        text(parent, name, bits);
    }
    void put(QDomElement& parent, const QString& name, const QStringList& values)
    {
        QDomElement list = element(parent, name);
        for (const QString& value : values)
            text(list, QStringLiteral("Item"), value);
    }
    template <typename E>
    void put(QDomElement& parent, const QString& name, E value, const WordTable<E>& words)
    {
        text(parent, name, words.word(value));
    }

    void secret(QDomElement& parent, const QString& name, const Secret& secret)
    {
        if (secret.isEmpty())
            return;
        Base::SecretForm form = m_form;
        QString value = secret.text();
        if (form == Base::SecretForm::Masked) {
            value = kMaskedText;
        } else if (secret.isUnopened()) {
            // Carried back exactly as it was read; it was sealed elsewhere.
            form = Base::SecretForm::Sealed;
        } else if (form == Base::SecretForm::Sealed) {
            QString reason;
            value = Orv::Common::LocalSecret().encrypt(value.toUtf8(), &reason);
            if (value.isEmpty()) {
                if (m_error.isEmpty())
                    m_error = QStringLiteral("cannot seal the plan's password: ") + reason;
                return;
            }
        }
        QDomElement child = element(parent, name);
        child.setAttribute(kForm, secretFormWord(form));
        fill(child, value);
    }

private:
    QDomDocument& m_document;
    Base::SecretForm m_form;
    QString m_error;
};

class Reader
{
public:
    bool ok() const { return m_error.isEmpty(); }
    QString error() const { return m_error; }

    void fail(const QDomElement& at, const QString& why)
    {
        if (m_error.isEmpty()) {
            m_error = QStringLiteral("<%1> at line %2: %3")
                          .arg(at.tagName())
                          .arg(at.lineNumber())
                          .arg(why);
        }
    }

    std::optional<QString> text(const QDomElement& element)
    {
        const QString raw = element.text();
        const QString encoding = element.attribute(kEncoding);
        if (encoding.isEmpty())
            return raw;
        if (encoding != kBase64) {
            fail(element, QStringLiteral("unknown encoding \"%1\"").arg(encoding));
            return std::nullopt;
        }
        auto decoded =
            QByteArray::fromBase64Encoding(raw.toLatin1(), QByteArray::AbortOnBase64DecodingErrors);
        if (!decoded) {
            fail(element, QStringLiteral("the value is not Base64"));
            return std::nullopt;
        }
        return QString::fromUtf8(*decoded);
    }

    bool parse(const QDomElement& e, QString& value)
    {
        const auto read = text(e);
        if (read)
            value = *read;
        return read.has_value();
    }
    bool parse(const QDomElement& e, bool& value)
    {
        const QString word = text(e).value_or(QString());
        if (word != kTrue && word != kFalse)
            return wrong(e, word, QStringLiteral("true or false"));
        value = word == kTrue;
        return true;
    }
    bool parse(const QDomElement& e, int& value)
    {
        bool ok = false;
        const QString word = text(e).value_or(QString());
        value = word.toInt(&ok);
        return ok || wrong(e, word, QStringLiteral("an integer"));
    }
    bool parse(const QDomElement& e, quint64& value)
    {
        bool ok = false;
        const QString word = text(e).value_or(QString());
        value = word.toULongLong(&ok);
        return ok || wrong(e, word, QStringLiteral("an unsigned integer"));
    }
    bool parse(const QDomElement& e, QUuid& value)
    {
        const QString word = text(e).value_or(QString());
        value = QUuid(word);
        return word.isEmpty() || !value.isNull() || wrong(e, word, QStringLiteral("a UUID"));
    }
    bool parse(const QDomElement& e, QDateTime& value)
    {
        const QString word = text(e).value_or(QString());
        value = QDateTime::fromString(word, Qt::ISODateWithMs);
        return word.isEmpty() || value.isValid() ||
               wrong(e, word, QStringLiteral("a date and time"));
    }
    bool parse(const QDomElement& e, QDate& value)
    {
        const QString word = text(e).value_or(QString());
        value = QDate::fromString(word, Qt::ISODate);
        return word.isEmpty() || value.isValid() || wrong(e, word, QStringLiteral("a date"));
    }
    bool parse(const QDomElement& e, QTime& value)
    {
        const QString word = text(e).value_or(QString());
        value = QTime::fromString(word, kTimeFormat);
        return word.isEmpty() || value.isValid() || wrong(e, word, QStringLiteral("a time of day"));
    }
    bool parse(const QDomElement& e, QByteArray& value)
    {
        const QString word = text(e).value_or(QString());
        auto decoded = QByteArray::fromBase64Encoding(word.toLatin1(),
                                                      QByteArray::AbortOnBase64DecodingErrors);
        if (!decoded)
            return wrong(e, word, QStringLiteral("Base64"));
        value = *decoded;
        return true;
    }
    bool parse(const QDomElement& e, QBitArray& value)
    {
        const QString word = text(e).value_or(QString());
        value = QBitArray(word.size());
        for (int i = 0; i < word.size(); ++i) {
            if (word.at(i) != QLatin1Char('0') && word.at(i) != QLatin1Char('1'))
                return wrong(e, word, QStringLiteral("a string of 0 and 1"));
            value.setBit(i, word.at(i) == QLatin1Char('1'));
        }
        return true;
    }
    bool parse(const QDomElement& e, QStringList& value)
    {
        value.clear();
        for (QDomElement item = e.firstChildElement(QStringLiteral("Item")); !item.isNull();
             item = item.nextSiblingElement(QStringLiteral("Item"))) {
            const auto read = text(item);
            if (!read)
                return false;
            value.append(*read);
        }
        return true;
    }
    template <typename E> bool parse(const QDomElement& e, E& value, const WordTable<E>& words)
    {
        const QString word = text(e).value_or(QString());
        const auto found = words.value(word);
        if (!found)
            return wrong(e, word,
                         QStringLiteral("one of ") + words.words().join(QStringLiteral(", ")));
        value = *found;
        return true;
    }

    // Reads the child `name` of `parent` into `object` through `set`; an
    // absent child leaves the object as it is.
    template <typename Object, typename Class, typename Arg>
    void get(const QDomElement& parent, const QString& name, Object& object,
             void (Class::*set)(Arg))
    {
        const QDomElement e = parent.firstChildElement(name);
        std::decay_t<Arg> value{};
        if (!e.isNull() && ok() && parse(e, value))
            (object.*set)(value);
    }
    template <typename Object, typename Class, typename E>
    void get(const QDomElement& parent, const QString& name, Object& object, void (Class::*set)(E),
             const WordTable<E>& words)
    {
        const QDomElement e = parent.firstChildElement(name);
        E value{};
        if (!e.isNull() && ok() && parse(e, value, words))
            (object.*set)(value);
    }

    // An absent password gives an empty one.
    std::optional<Secret> secret(const QDomElement& parent, const QString& name)
    {
        const QDomElement e = parent.firstChildElement(name);
        if (e.isNull() || !ok())
            return std::nullopt;
        const auto value = text(e);
        if (!value)
            return std::nullopt;
        const QString form = e.attribute(kForm);
        if (form == secretFormWord(Base::SecretForm::Plain))
            return Secret(*value);
        if (form == secretFormWord(Base::SecretForm::Masked)) {
            fail(e, QStringLiteral("the password is masked: this form of the plan is for display "
                                   "only and cannot be loaded"));
            return std::nullopt;
        }
        if (form != secretFormWord(Base::SecretForm::Sealed)) {
            fail(e, QStringLiteral("unknown password form \"%1\"").arg(form));
            return std::nullopt;
        }
        if (!Orv::Common::LocalSecret::isEncrypted(*value)) {
            fail(e, QStringLiteral("the sealed password is damaged"));
            return std::nullopt;
        }
        const auto plain = Orv::Common::LocalSecret().decrypt(*value);
        return plain ? Secret(QString::fromUtf8(*plain)) : Secret::unopened(*value);
    }

private:
    bool wrong(const QDomElement& e, const QString& word, const QString& expected)
    {
        fail(e, QStringLiteral("\"%1\" is not %2").arg(word, expected));
        return false;
    }

    QString m_error;
};

// ---- Writing --------------------------------------------------------------

void writeSchedule(Writer& out, QDomElement& parent, const QString& name, const Schedule& schedule)
{
    QDomElement e = out.element(parent, name);
    out.put(e, QStringLiteral("Enabled"), schedule.isEnable());
    out.put(e, QStringLiteral("Type"), schedule.type(), Schedule::typeWords());
    out.put(e, QStringLiteral("SpecificDate"), schedule.specificDate());
    out.put(e, QStringLiteral("Frequency"), schedule.frequencyType(), Schedule::frequencyWords());
    out.put(e, QStringLiteral("DailyRecurrence"), schedule.dailyRecurrence());
    out.put(e, QStringLiteral("OccursAt"), schedule.occursAt());
    QDomElement every = out.element(e, QStringLiteral("OccursEvery"));
    out.put(every, QStringLiteral("Minutes"), schedule.occursEvery().minutes());
    out.put(every, QStringLiteral("From"), schedule.occursEvery().fromTime());
    out.put(every, QStringLiteral("To"), schedule.occursEvery().toTime());
    out.put(e, QStringLiteral("WeekDays"), schedule.weeklyFrequency());
    QDomElement monthly = out.element(e, QStringLiteral("Monthly"));
    out.put(monthly, QStringLiteral("WeekNumber"), schedule.monthlyFrequency().weekNumber,
            Schedule::weekNumberWords());
    out.put(monthly, QStringLiteral("DayOfWeek"), schedule.monthlyFrequency().dayOfWeek);
    out.put(e, QStringLiteral("DayOfMonth"), schedule.dayOfMonthFrequency());
    QDomElement repeat = out.element(e, QStringLiteral("MonthRepeat"));
    out.put(repeat, QStringLiteral("Every"), schedule.monthRepeat());
    out.put(repeat, QStringLiteral("From"), schedule.monthRepeatFrom());
    out.put(e, QStringLiteral("StopAfter"), schedule.stopAfter());
}

void writeBase(Writer& out, QDomElement& root, const Base& plan)
{
    root.setAttribute(QStringLiteral("Version"), PlanXml::Version);
    root.setAttribute(QStringLiteral("ID"), plan.id().toString());
    // The attribute is for the plan list; a name it cannot carry exactly is
    // given in full by the Name element as well.
    QString shownName = plan.name();
    if (!carriesExactly(shownName) || shownName.contains(QLatin1Char('\t')) ||
        shownName.contains(QLatin1Char('\n'))) {
        for (int i = 0; i < shownName.size(); ++i) {
            const QChar c = shownName.at(i);
            const bool pair = c.isHighSurrogate() && i + 1 < shownName.size() &&
                              shownName.at(i + 1).isLowSurrogate();
            if (pair)
                ++i;
            else if (c.unicode() < 0x20 || c.isSurrogate() || c.unicode() >= 0xfffe)
                shownName[i] = QLatin1Char(' ');
        }
        out.put(root, QStringLiteral("Name"), plan.name());
    }
    root.setAttribute(QStringLiteral("Name"), shownName);
    root.setAttribute(QStringLiteral("Type"), plan.type().toString());
    root.setAttribute(QStringLiteral("Subtype"), PlanSubtype::words().word(plan.subtype().value()));
    root.setAttribute(QStringLiteral("Storage"),
                      plan.storage().isNull() ? QString() : plan.storage().toString());
    out.put(root, QStringLiteral("AccountId"), plan.accountId());
    out.put(root, QStringLiteral("IsArchive"), plan.isArchive());
    out.put(root, QStringLiteral("RunMissedPlan"), plan.runMuissedPlan());
    out.put(root, QStringLiteral("SyncBeforeRun"), plan.syncBeforeRun());
    out.put(root, QStringLiteral("ConsistencyCheck"), plan.useConsistencyCheck());
    writeSchedule(out, root, QStringLiteral("Schedule"), plan.schedule());
    QDomElement notification = out.element(root, QStringLiteral("Notification"));
    out.put(notification, QStringLiteral("Type"), plan.notification().type(),
            Notification::words());
    out.put(notification, QStringLiteral("Subject"), plan.notification().subject());
    out.put(notification, QStringLiteral("DetailedReport"),
            plan.notification().generateDetailedReport());
}

void writeAction(Writer& out, QDomElement& e, const Action& action)
{
    out.put(e, QStringLiteral("Enabled"), action.isEnabled());
    out.put(e, QStringLiteral("Program"), action.program());
}

void writeBackup(Writer& out, QDomElement& root, const Backup& plan)
{
    out.put(root, QStringLiteral("Compression"), plan.useCompression());
    out.put(root, QStringLiteral("DifferentialUpload"), plan.useDifferentialUpload());
    out.put(root, QStringLiteral("SavePlanInCloud"), plan.savePlanInCloud());
    writeSchedule(out, root, QStringLiteral("ForceFullSchedule"), plan.forceFullSchedule());

    QDomElement encryption = out.element(root, QStringLiteral("Encryption"));
    out.put(encryption, QStringLiteral("Enabled"), plan.encryption().isEnabled());
    out.put(encryption, QStringLiteral("Algorithm"), int(plan.encryption().encryptionType()));
    out.secret(encryption, QStringLiteral("Password"), plan.encryption().passwordSecret());
    out.put(encryption, QStringLiteral("Hint"), plan.encryption().hint());

    const Backup::RetentionPolicy& policy = plan.retentionPolicy();
    QDomElement retention = out.element(root, QStringLiteral("RetentionPolicy"));
    out.put(retention, QStringLiteral("Type"), policy.type(), Backup::RetentionPolicy::words());
    out.put(retention, QStringLiteral("DeleteOlder"), policy.useDeleteOlder());
    QDomElement age = out.element(retention, QStringLiteral("DeleteFileAge"));
    out.put(age, QStringLiteral("Count"), int(policy.deleteFileAge().count()));
    out.put(age, QStringLiteral("Unit"), policy.deleteFileAge().unit(),
            Backup::RetentionPolicy::FileAge::words());
    out.put(retention, QStringLiteral("UseBackupDate"), policy.useBackupDate());
    out.put(retention, QStringLiteral("KeepLastVersion"), policy.useKeepLastVersion());
    out.put(retention, QStringLiteral("UseKeepVersion"), policy.useKeepVersion());
    out.put(retention, QStringLiteral("KeepVersion"), policy.keepVersion());
    out.put(retention, QStringLiteral("DeleteLocally"), policy.useDeleteLocaly());
    out.put(retention, QStringLiteral("DeleteLocallyAfter"), policy.deleteLocalyAfter());

    const Backup::StorageInfo& info = plan.storageInfo();
    QDomElement storage = out.element(root, QStringLiteral("StorageInfo"));
    out.put(storage, QStringLiteral("S3Accelerated"), info.useS3Accelerated());
    out.put(storage, QStringLiteral("AmazonS3StorageClass"), info.storageClassAmazonS3(),
            Backup::StorageInfo::amazonS3Words());
    out.put(storage, QStringLiteral("AzureBlobStorageClass"), info.storageClassAzureBlob(),
            Backup::StorageInfo::azureBlobWords());
    out.put(storage, QStringLiteral("SSE"), info.useSSE());

    QDomElement actions = out.element(root, QStringLiteral("Actions"));
    QDomElement pre = out.element(actions, QStringLiteral("Pre"));
    writeAction(out, pre, plan.actions().pre());
    out.put(pre, QStringLiteral("TerminateOnFailure"), plan.actions().pre().terminateOnFailure());
    QDomElement post = out.element(actions, QStringLiteral("Post"));
    writeAction(out, post, plan.actions().post());
    out.put(post, QStringLiteral("RunOnBackupFailure"), plan.actions().post().runOnBackupFailure());
}

void writeBackupFile(Writer& out, QDomElement& root, const BackupFile& plan)
{
    out.put(root, QStringLiteral("Items"), plan.items());
    out.put(root, QStringLiteral("ExcludeItems"), plan.excludeItems());
    out.put(root, QStringLiteral("ExcludeFolders"), plan.excludeFolderList());
    out.put(root, QStringLiteral("Filter"), plan.filter());
    out.put(root, QStringLiteral("FilterType"), plan.filterType(), BackupFile::filterWords());
    out.put(root, QStringLiteral("ExcludeSystemAndHidden"), plan.excludeSystemAndHidden());
    out.put(root, QStringLiteral("SkipInUseFiles"), plan.skipInUseFiles());
    out.put(root, QStringLiteral("BackupEmptyFolders"), plan.backupEmptyFolders());
}

void writeRestore(Writer& out, QDomElement& root, const Restore& plan)
{
    out.put(root, QStringLiteral("RestoreType"), plan.restoreType(), Restore::restoreTypeWords());
    out.put(root, QStringLiteral("PointInTime"), plan.pointInTime());
    out.put(root, QStringLiteral("RestorePoint"), plan.restorePoint());
    out.put(root, QStringLiteral("DeletePlan"), plan.deletePlan(), Restore::deleteTypeWords());
    out.put(root, QStringLiteral("UseEncryption"), plan.useEncryption());
    out.secret(root, QStringLiteral("Password"), plan.encryptionPasswordSecret());
    QDomElement storage = out.element(root, QStringLiteral("StorageInfo"));
    out.put(storage, QStringLiteral("S3Accelerated"), plan.storageInfo().useS3Accelerated());
    out.put(storage, QStringLiteral("RetrievalRate"), plan.storageInfo().type(),
            Restore::StorageInfo::words());
}

void writeRestoreFile(Writer& out, QDomElement& root, const RestoreFile& plan)
{
    out.put(root, QStringLiteral("RestoreItems"), plan.restoreItems());
    out.put(root, QStringLiteral("Destination"), plan.destination());
    out.put(root, QStringLiteral("RestoreToOriginalLocation"), plan.restoreToOriginalLocation());
    out.put(root, QStringLiteral("OnlyNewFiles"), plan.onlyNewFiles());
    out.put(root, QStringLiteral("SkipExistingFiles"), plan.skipExistingFiles());
    out.put(root, QStringLiteral("RestoreDeletedFiles"), plan.restoreDeletedFiles());
}

// ---- Reading --------------------------------------------------------------

void readSchedule(Reader& in, const QDomElement& parent, const QString& name, Schedule& schedule)
{
    const QDomElement e = parent.firstChildElement(name);
    if (e.isNull())
        return;
    in.get(e, QStringLiteral("Enabled"), schedule, &Schedule::setEnable);
    in.get(e, QStringLiteral("Type"), schedule, &Schedule::setType, Schedule::typeWords());
    in.get(e, QStringLiteral("SpecificDate"), schedule, &Schedule::setSpecificDate);
    in.get(e, QStringLiteral("Frequency"), schedule, &Schedule::setFrequencyType,
           Schedule::frequencyWords());
    in.get(e, QStringLiteral("DailyRecurrence"), schedule, &Schedule::setDailyRecurrence);
    in.get(e, QStringLiteral("OccursAt"), schedule, &Schedule::setOccursAt);
    in.get(e, QStringLiteral("WeekDays"), schedule, &Schedule::setWeeklyFrequency);
    in.get(e, QStringLiteral("DayOfMonth"), schedule, &Schedule::setDayOfMonthFrequency);
    in.get(e, QStringLiteral("StopAfter"), schedule, &Schedule::setStopAfter);

    const QDomElement every = e.firstChildElement(QStringLiteral("OccursEvery"));
    int minutes = schedule.occursEvery().minutes();
    QTime from = schedule.occursEvery().fromTime();
    QTime to = schedule.occursEvery().toTime();
    const auto readChild = [&in](const QDomElement& parent, const QString& name, auto& value) {
        const QDomElement child = parent.firstChildElement(name);
        if (!child.isNull() && in.ok())
            in.parse(child, value);
    };
    readChild(every, QStringLiteral("Minutes"), minutes);
    readChild(every, QStringLiteral("From"), from);
    readChild(every, QStringLiteral("To"), to);
    schedule.setOccursEvery(Schedule::OccursEvery(minutes, from, to));

    const QDomElement monthly = e.firstChildElement(QStringLiteral("Monthly"));
    Schedule::MonthlyFrequency frequency = schedule.monthlyFrequency();
    const QDomElement week = monthly.firstChildElement(QStringLiteral("WeekNumber"));
    if (!week.isNull() && in.ok())
        in.parse(week, frequency.weekNumber, Schedule::weekNumberWords());
    readChild(monthly, QStringLiteral("DayOfWeek"), frequency.dayOfWeek);
    schedule.setMonthlyFrequency(frequency.weekNumber, frequency.dayOfWeek);

    const QDomElement repeat = e.firstChildElement(QStringLiteral("MonthRepeat"));
    int months = schedule.monthRepeat();
    QDate repeatFrom = schedule.monthRepeatFrom();
    readChild(repeat, QStringLiteral("Every"), months);
    readChild(repeat, QStringLiteral("From"), repeatFrom);
    schedule.setMonthRepeat(months, repeatFrom);
}

void readBase(Reader& in, const QDomElement& root, Base& plan)
{
    in.get(root, QStringLiteral("Name"), plan, &Base::setName);
    in.get(root, QStringLiteral("AccountId"), plan, &Base::setAccountId);
    in.get(root, QStringLiteral("IsArchive"), plan, &Base::setIsArchive);
    in.get(root, QStringLiteral("RunMissedPlan"), plan, &Base::setRunMissedPlan);
    in.get(root, QStringLiteral("SyncBeforeRun"), plan, &Base::setSyncBeforeRun);
    in.get(root, QStringLiteral("ConsistencyCheck"), plan, &Base::setUseConsistencyCheck);
    readSchedule(in, root, QStringLiteral("Schedule"), plan.schedule());
    const QDomElement notification = root.firstChildElement(QStringLiteral("Notification"));
    in.get(notification, QStringLiteral("Type"), plan.notification(), &Notification::setType,
           Notification::words());
    in.get(notification, QStringLiteral("Subject"), plan.notification(), &Notification::setSubject);
    in.get(notification, QStringLiteral("DetailedReport"), plan.notification(),
           &Notification::setGenerateDetailedReport);
}

void readAction(Reader& in, const QDomElement& e, Action& action)
{
    in.get(e, QStringLiteral("Enabled"), action, &Action::setEnabled);
    in.get(e, QStringLiteral("Program"), action, &Action::setProgram);
}

void readBackup(Reader& in, const QDomElement& root, Backup& plan)
{
    in.get(root, QStringLiteral("Compression"), plan, &Backup::setUseCompression);
    in.get(root, QStringLiteral("DifferentialUpload"), plan, &Backup::setUseDifferentialUpload);
    in.get(root, QStringLiteral("SavePlanInCloud"), plan, &Backup::setSavePlanInCloud);
    readSchedule(in, root, QStringLiteral("ForceFullSchedule"), plan.forceFullSchedule());

    const QDomElement encryption = root.firstChildElement(QStringLiteral("Encryption"));
    in.get(encryption, QStringLiteral("Enabled"), plan.encryption(),
           &Backup::Encyption::setEnabled);
    const QDomElement algorithm = encryption.firstChildElement(QStringLiteral("Algorithm"));
    int number = 0;
    if (!algorithm.isNull() && in.ok() && in.parse(algorithm, number)) {
        if (number == Backup::Encyption::AES128 || number == Backup::Encyption::AES192 ||
            number == Backup::Encyption::AES256 || number == Backup::Encyption::Undefined)
            plan.encryption().setEncryptionType(Backup::Encyption::Type(number));
        else
            in.fail(algorithm, QStringLiteral("unknown algorithm %1").arg(number));
    }
    if (const auto password = in.secret(encryption, QStringLiteral("Password")))
        plan.encryption().setPasswordSecret(*password);
    in.get(encryption, QStringLiteral("Hint"), plan.encryption(), &Backup::Encyption::setHint);

    Backup::RetentionPolicy& policy = plan.retentionPolicy();
    const QDomElement retention = root.firstChildElement(QStringLiteral("RetentionPolicy"));
    in.get(retention, QStringLiteral("Type"), policy, &Backup::RetentionPolicy::setType,
           Backup::RetentionPolicy::words());
    in.get(retention, QStringLiteral("DeleteOlder"), policy,
           &Backup::RetentionPolicy::setUseDeleteOlder);
    const QDomElement age = retention.firstChildElement(QStringLiteral("DeleteFileAge"));
    Backup::RetentionPolicy::FileAge fileAge = policy.deleteFileAge();
    in.get(age, QStringLiteral("Count"), fileAge, &Backup::RetentionPolicy::FileAge::setCount);
    in.get(age, QStringLiteral("Unit"), fileAge, &Backup::RetentionPolicy::FileAge::setUnit,
           Backup::RetentionPolicy::FileAge::words());
    policy.setDeleteFileAge(fileAge);
    in.get(retention, QStringLiteral("UseBackupDate"), policy,
           &Backup::RetentionPolicy::setUseBackupDate);
    in.get(retention, QStringLiteral("KeepLastVersion"), policy,
           &Backup::RetentionPolicy::setUseKeepLastVersion);
    in.get(retention, QStringLiteral("UseKeepVersion"), policy,
           &Backup::RetentionPolicy::setUseKeepVersion);
    in.get(retention, QStringLiteral("KeepVersion"), policy,
           &Backup::RetentionPolicy::setKeepVersion);
    in.get(retention, QStringLiteral("DeleteLocally"), policy,
           &Backup::RetentionPolicy::setUseDeleteLocaly);
    in.get(retention, QStringLiteral("DeleteLocallyAfter"), policy,
           &Backup::RetentionPolicy::setDeleteLocalyAfter);

    Backup::StorageInfo& info = plan.storageInfo();
    const QDomElement storage = root.firstChildElement(QStringLiteral("StorageInfo"));
    in.get(storage, QStringLiteral("S3Accelerated"), info, &StorageInfo::setUseS3Accelerated);
    in.get(storage, QStringLiteral("AmazonS3StorageClass"), info,
           &Backup::StorageInfo::setStorageClassAmazonS3, Backup::StorageInfo::amazonS3Words());
    in.get(storage, QStringLiteral("AzureBlobStorageClass"), info,
           &Backup::StorageInfo::setStorageClassAzureBlob, Backup::StorageInfo::azureBlobWords());
    in.get(storage, QStringLiteral("SSE"), info, &Backup::StorageInfo::setUseSSE);

    const QDomElement actions = root.firstChildElement(QStringLiteral("Actions"));
    const QDomElement pre = actions.firstChildElement(QStringLiteral("Pre"));
    readAction(in, pre, plan.actions().pre());
    in.get(pre, QStringLiteral("TerminateOnFailure"), plan.actions().pre(),
           &PreAction::setTerminateOnFailure);
    const QDomElement post = actions.firstChildElement(QStringLiteral("Post"));
    readAction(in, post, plan.actions().post());
    in.get(post, QStringLiteral("RunOnBackupFailure"), plan.actions().post(),
           &PostAction::setRunOnBackupFailure);
}

void readBackupFile(Reader& in, const QDomElement& root, BackupFile& plan)
{
    in.get(root, QStringLiteral("Items"), plan, &BackupFile::setItems);
    in.get(root, QStringLiteral("ExcludeItems"), plan, &BackupFile::setExcludeItems);
    in.get(root, QStringLiteral("ExcludeFolders"), plan, &BackupFile::setExcludeFolderList);
    in.get(root, QStringLiteral("Filter"), plan, &BackupFile::setFilter);
    in.get(root, QStringLiteral("FilterType"), plan, &BackupFile::setFilterType,
           BackupFile::filterWords());
    in.get(root, QStringLiteral("ExcludeSystemAndHidden"), plan,
           &BackupFile::setExcludeSystemAndHidden);
    in.get(root, QStringLiteral("SkipInUseFiles"), plan, &BackupFile::setSkipInUseFiles);
    in.get(root, QStringLiteral("BackupEmptyFolders"), plan, &BackupFile::setBackupEmptyFolders);
}

void readRestore(Reader& in, const QDomElement& root, Restore& plan)
{
    in.get(root, QStringLiteral("RestoreType"), plan, &Restore::setRestoreType,
           Restore::restoreTypeWords());
    in.get(root, QStringLiteral("PointInTime"), plan, &Restore::setPointInTime);
    in.get(root, QStringLiteral("RestorePoint"), plan, &Restore::setRestorePoint);
    in.get(root, QStringLiteral("DeletePlan"), plan, &Restore::setDeletePlan,
           Restore::deleteTypeWords());
    in.get(root, QStringLiteral("UseEncryption"), plan, &Restore::setUseEncryption);
    if (const auto password = in.secret(root, QStringLiteral("Password")))
        plan.setEncryptionPasswordSecret(*password);
    const QDomElement storage = root.firstChildElement(QStringLiteral("StorageInfo"));
    in.get(storage, QStringLiteral("S3Accelerated"), plan.storageInfo(),
           &StorageInfo::setUseS3Accelerated);
    in.get(storage, QStringLiteral("RetrievalRate"), plan.storageInfo(),
           &Restore::StorageInfo::setType, Restore::StorageInfo::words());
}

void readRestoreFile(Reader& in, const QDomElement& root, RestoreFile& plan)
{
    in.get(root, QStringLiteral("RestoreItems"), plan, &RestoreFile::setRestoreItems);
    in.get(root, QStringLiteral("Destination"), plan, &RestoreFile::setDestination);
    in.get(root, QStringLiteral("RestoreToOriginalLocation"), plan,
           &RestoreFile::setRestoreToOriginalLocation);
    in.get(root, QStringLiteral("OnlyNewFiles"), plan, &RestoreFile::setOnlyNewFiles);
    in.get(root, QStringLiteral("SkipExistingFiles"), plan, &RestoreFile::setSkipExistingFiles);
    in.get(root, QStringLiteral("RestoreDeletedFiles"), plan, &RestoreFile::setRestoreDeletedFiles);
}

QSharedPointer<Base> refuse(QString* error, const QString& why)
{
    if (error)
        *error = why;
    return {};
}

} // namespace

QDomDocument PlanXml::write(const Base& plan, Base::SecretForm form, QString* error)
{
    QDomDocument document;
    document.appendChild(document.createProcessingInstruction(
        QStringLiteral("xml"), QStringLiteral("version=\"1.0\" encoding=\"UTF-8\"")));
    QDomElement root = document.createElement(QStringLiteral("Plan"));
    document.appendChild(root);
    Writer out(document, form);
    writeBase(out, root, plan);
    if (const auto* backup = dynamic_cast<const Backup*>(&plan))
        writeBackup(out, root, *backup);
    if (const auto* files = dynamic_cast<const BackupFile*>(&plan))
        writeBackupFile(out, root, *files);
    if (const auto* restore = dynamic_cast<const Restore*>(&plan))
        writeRestore(out, root, *restore);
    if (const auto* files = dynamic_cast<const RestoreFile*>(&plan))
        writeRestoreFile(out, root, *files);
    if (!out.ok()) {
        if (error)
            *error = out.error();
        return QDomDocument();
    }
    return document;
}

QSharedPointer<Base> PlanXml::read(const QDomDocument& document, QString* error)
{
    const QDomElement root = document.documentElement();
    if (root.isNull())
        return refuse(error, QStringLiteral("the document is empty"));
    if (root.tagName() != QLatin1String("Plan"))
        return refuse(error,
                      QStringLiteral("the root element is <%1>, not <Plan>").arg(root.tagName()));

    const QString versionText = root.attribute(QStringLiteral("Version"), QStringLiteral("1"));
    bool numeric = false;
    const int version = versionText.toInt(&numeric);
    if (!numeric || version < 1)
        return refuse(error,
                      QStringLiteral("the plan's version \"%1\" is not valid").arg(versionText));
    if (version > Version) {
        return refuse(error, QStringLiteral("the plan was written by a newer version (plan format "
                                            "%1, this program reads up to %2)")
                                 .arg(version)
                                 .arg(Version));
    }

    const QString idText = root.attribute(QStringLiteral("ID"));
    const QUuid id(idText);
    if (id.isNull())
        return refuse(error, QStringLiteral("the plan's ID \"%1\" is not a UUID").arg(idText));
    const QString storageText = root.attribute(QStringLiteral("Storage"));
    const QUuid storage(storageText);
    if (!storageText.isEmpty() && storage.isNull())
        return refuse(error,
                      QStringLiteral("the plan's Storage \"%1\" is not a UUID").arg(storageText));

    const QString typeText = root.attribute(QStringLiteral("Type"));
    const QString subtypeText = root.attribute(QStringLiteral("Subtype"), QStringLiteral("File"));
    const auto type = PlanType::words().value(typeText);
    const auto subtype = PlanSubtype::words().value(subtypeText);
    QSharedPointer<Base> plan;
    if (type == PlanType::Backup && subtype == PlanSubtype::File)
        plan = QSharedPointer<BackupFile>::create();
    else if (type == PlanType::Restore && subtype == PlanSubtype::File)
        plan = QSharedPointer<RestoreFile>::create();
    else
        return refuse(error,
                      QStringLiteral("plans of type \"%1\" and subtype \"%2\" are not supported")
                          .arg(typeText, subtypeText));

    plan->setId(id);
    plan->setName(root.attribute(QStringLiteral("Name")));
    plan->setStorage(storage);
    Reader in;
    readBase(in, root, *plan);
    if (auto* backup = dynamic_cast<Backup*>(plan.data()))
        readBackup(in, root, *backup);
    if (auto* files = dynamic_cast<BackupFile*>(plan.data()))
        readBackupFile(in, root, *files);
    if (auto* restore = dynamic_cast<Restore*>(plan.data()))
        readRestore(in, root, *restore);
    if (auto* files = dynamic_cast<RestoreFile*>(plan.data()))
        readRestoreFile(in, root, *files);
    if (!in.ok())
        return refuse(error, in.error());
    return plan;
}

} // namespace Orv::Info::Plan
