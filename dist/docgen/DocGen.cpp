// Writes the bash completion of orvV2 and the manual pages of orvV2 and orvd
// from the programs themselves: the command line's own command tree (groups,
// commands, options and the words their help offers for a value) and the
// installation paths of the client library. Run at build time, so what ships
// always matches the programs it ships with.
//
//   orv-docgen <output folder> <folder of the page templates>
//
// The templates (orvV2.1.in, orvd.8.in) hold the hand-written text; the
// generated parts replace their @...@ markers.

#include "GroupStandalone.h"
#include "kelCore/Version.h"
#include "orvCommon/AppPath.h"

#include <QCommandLineOption>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QSaveFile>
#include <QTemporaryDir>
#include <QTextStream>
#include <cstdio>
#include <cstdlib>

namespace {

using Orv::CLI::CommandBase;

struct Option
{
    QStringList names; // with their dashes: "-n", "--name"
    QString valueName; // empty for a switch without a value
    QString description;
    QStringList words; // the fixed values it takes, when its help names them
};

struct Node
{
    QString path; // "account add s3compatible"; empty for the root
    QString description;
    QList<Node> children;
    QList<Option> options;
};

// The help of an option names its fixed values in one of a few forms:
// "Possible values: aws2(default), aws4.", "(Disable, Low, High, Debug)",
// "Use SSL (true/false)", or "true/false" as the value's name. Anything that
// is not a plain word ("1..100", "value in KB") is no fixed value and left
// out; so is a notice such as "(default)".
QStringList fixedWords(const QCommandLineOption& option)
{
    QString list;
    const QString description = option.description().simplified();
    static const QRegularExpression possible(
        QStringLiteral("Possible values?:\\s*([^.]*(?:\\.\\.\\.?[^.]*)*)"),
        QRegularExpression::CaseInsensitiveOption);
    static const QRegularExpression parenthesised(QStringLiteral("\\(([^()]*[,/][^()]*)\\)\\s*$"));
    QRegularExpressionMatch match = possible.match(description);
    if (match.hasMatch())
        list = match.captured(1);
    else if ((match = parenthesised.match(description)).hasMatch())
        list = match.captured(1);
    else if (option.valueName().contains(QLatin1Char('/')))
        list = option.valueName();
    static const QRegularExpression separators(QStringLiteral("\\s*[,/|]\\s*|\\s+or\\s+"));
    static const QRegularExpression notice(QStringLiteral("\\([^)]*\\)"));
    static const QRegularExpression plainWord(QStringLiteral("^[A-Za-z][A-Za-z0-9_-]*$"));
    QStringList words;
    const QStringList parts = list.split(separators, Qt::SkipEmptyParts);
    for (QString part : parts) {
        part.remove(notice);
        part = part.trimmed();
        if (plainWord.match(part).hasMatch() && !words.contains(part))
            words.append(part);
    }
    return words;
}

Node walk(const CommandBase& item, const QString& path)
{
    Node node;
    node.path = path;
    node.description = item.helpMessage();
    const QList<QCommandLineOption> options = item.options();
    for (const QCommandLineOption& option : options) {
        Option described;
        for (const QString& name : option.names())
            described.names.append((name.size() == 1 ? QStringLiteral("-") : QStringLiteral("--")) +
                                   name);
        described.valueName = option.valueName();
        described.description = option.description().simplified();
        if (!described.valueName.isEmpty())
            described.words = fixedWords(option);
        node.options.append(described);
    }
    const QMap<QString, QSharedPointer<CommandBase>> children = item.subItems();
    for (const QSharedPointer<CommandBase>& child : children) {
        // Hidden items are typed by those who know them; they are not offered.
        if (!child->viewItemsHelp())
            continue;
        node.children.append(
            walk(*child, path.isEmpty() ? child->name() : path + QLatin1Char(' ') + child->name()));
    }
    return node;
}

void collect(const Node& node, QList<const Node*>* all)
{
    all->append(&node);
    for (const Node& child : node.children)
        collect(child, all);
}

QString lastWord(const QString& path)
{
    return path.section(QLatin1Char(' '), -1);
}

// ---------------------------------------------------------------- completion

QString shellQuoted(const QStringList& words)
{
    QStringList quoted;
    for (QString word : words)
        quoted.append(QLatin1Char('\'') + word.replace(QLatin1Char('\''), QStringLiteral("'\\''")) +
                      QLatin1Char('\''));
    return quoted.join(QLatin1Char(' '));
}

// Value names that stand for a file or a folder get file name completion.
bool takesPath(const Option& option)
{
    static const QRegularExpression pathLike(
        QStringLiteral("^(?!container).*(path|file|folder|dir)"),
        QRegularExpression::CaseInsensitiveOption);
    return pathLike.match(option.valueName).hasMatch();
}

QString completion(const Node& root)
{
    QList<const Node*> nodes;
    collect(root, &nodes);
    QString children;
    QString options;
    QString values;
    for (const Node* node : qAsConst(nodes)) {
        const QString key = shellQuoted({node->path});
        if (!node->children.isEmpty()) {
            QStringList names;
            for (const Node& child : node->children)
                names.append(lastWord(child.path));
            children += QStringLiteral("        %1) words=(%2) ;;\n").arg(key, shellQuoted(names));
        }
        QStringList names;
        for (const Option& option : node->options) {
            names += option.names;
            QStringList patterns;
            for (const QString& name : option.names)
                patterns.append(shellQuoted({node->path + QLatin1Char('/') + name}));
            const QString pattern = patterns.join(QLatin1Char('|'));
            if (!option.words.isEmpty())
                values += QStringLiteral("        %1) words=(%2) ;;\n")
                              .arg(pattern, shellQuoted(option.words));
            else if (!option.valueName.isEmpty())
                values += QStringLiteral("        %1) kind=%2 ;;\n")
                              .arg(pattern, takesPath(option) ? QStringLiteral("path")
                                                              : QStringLiteral("value"));
        }
        if (!names.isEmpty())
            options += QStringLiteral("        %1) words=(%2) ;;\n").arg(key, shellQuoted(names));
    }
    // The value cases match the command's path, a slash and the option that
    // the word before the cursor names: 'account add sftp/-n'|'account add sftp/--name'.
    QString script = QStringLiteral(
        "# bash completion for orvV2. Generated from the program's command tree at build\n"
        "# time: do not edit.\n"
        "\n"
        "_orvV2_children()\n"
        "{\n"
        "    case \"$1\" in\n"
        "%1"
        "        *) words=() ;;\n"
        "    esac\n"
        "}\n"
        "\n"
        "_orvV2_options()\n"
        "{\n"
        "    case \"$1\" in\n"
        "%2"
        "        *) words=() ;;\n"
        "    esac\n"
        "}\n"
        "\n"
        "# The value of an option: its fixed words, a path, a free value, or none\n"
        "# (the word before the cursor is no option that takes a value).\n"
        "_orvV2_value()\n"
        "{\n"
        "    kind=none\n"
        "    words=()\n"
        "    case \"$1/$2\" in\n"
        "%3"
        "    esac\n"
        "    if ((${#words[@]})); then kind=words; fi\n"
        "}\n"
        "\n"
        "_orvV2()\n"
        "{\n"
        "    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]}\n"
        "    local path='' word i kind\n"
        "    local -a words\n"
        "    COMPREPLY=()\n"
        "    # The command's path: the leading words that name a group or a command.\n"
        "    for ((i = 1; i < COMP_CWORD; i++)); do\n"
        "        word=${COMP_WORDS[i]}\n"
        "        _orvV2_children \"$path\"\n"
        "        local known=0 child\n"
        "        for child in \"${words[@]}\"; do\n"
        "            [[ $child == \"$word\" ]] && known=1 && break\n"
        "        done\n"
        "        if ((!known)); then\n"
        "            # A word the group does not know: nothing can follow it.\n"
        "            ((${#words[@]})) && return\n"
        "            break\n"
        "        fi\n"
        "        path=${path:+$path }$word\n"
        "    done\n"
        "    words=()\n"
        "    if ((COMP_CWORD > 1)) && [[ $prev == -* ]]; then\n"
        "        _orvV2_value \"$path\" \"$prev\"\n"
        "        # -mode reads as --mode, as the usage texts write it.\n"
        "        if [[ $kind == none && $prev == -[!-]?* ]]; then\n"
        "            _orvV2_value \"$path\" \"-$prev\"\n"
        "        fi\n"
        "        case $kind in\n"
        "        words)\n"
        "            mapfile -t COMPREPLY < <(compgen -W \"${words[*]}\" -- \"$cur\")\n"
        "            return\n"
        "            ;;\n"
        "        path)\n"
        "            compopt -o filenames 2>/dev/null\n"
        "            mapfile -t COMPREPLY < <(compgen -f -- \"$cur\")\n"
        "            return\n"
        "            ;;\n"
        "        value) return ;;\n"
        "        esac\n"
        "    fi\n"
        "    _orvV2_children \"$path\"\n"
        "    if [[ $cur == -* || ${#words[@]} -eq 0 ]]; then\n"
        "        _orvV2_options \"$path\"\n"
        "        words+=(-h --help)\n"
        "    else\n"
        "        words+=(help)\n"
        "    fi\n"
        "    mapfile -t COMPREPLY < <(compgen -W \"${words[*]}\" -- \"$cur\")\n"
        "}\n"
        "\n"
        "complete -F _orvV2 orvV2\n");
    return script.arg(children, options, values);
}

// ------------------------------------------------------------ manual pages

// Text as troff reads it: backslashes doubled, dashes as the minus sign where
// they are typed (options), and no line that starts like a request.
QString roff(QString text)
{
    text.replace(QLatin1Char('\\'), QStringLiteral("\\e"));
    text.replace(QLatin1Char('-'), QStringLiteral("\\-"));
    if (text.startsWith(QLatin1Char('.')) || text.startsWith(QLatin1Char('\'')))
        text.prepend(QStringLiteral("\\&"));
    return text;
}

QString optionsSection(const Node& node)
{
    QString text;
    for (const Option& option : node.options) {
        QStringList names;
        for (const QString& name : option.names)
            names.append(QStringLiteral("\\fB%1\\fR").arg(roff(name)));
        text += QStringLiteral(".TP\n") + names.join(QStringLiteral(", "));
        if (!option.valueName.isEmpty())
            text += QStringLiteral(" \\fI%1\\fR").arg(roff(option.valueName));
        text += QLatin1Char('\n') + roff(option.description) + QLatin1Char('\n');
    }
    return text;
}

QString commandsSection(const Node& root)
{
    QList<const Node*> nodes;
    collect(root, &nodes);
    QString text;
    for (const Node* node : qAsConst(nodes)) {
        if (node->path.isEmpty())
            continue;
        const bool topLevelGroup =
            !node->path.contains(QLatin1Char(' ')) && !node->children.isEmpty();
        if (topLevelGroup) {
            text += QStringLiteral(".SS %1\n%2.\n").arg(roff(node->path), roff(node->description));
            continue;
        }
        text += QStringLiteral(".TP\n\\fBorvV2 %1\\fR").arg(roff(node->path));
        if (!node->children.isEmpty())
            text += QStringLiteral(" \\fIcommand\\fR");
        else if (!node->options.isEmpty())
            text += QStringLiteral(" [\\fIoptions\\fR]");
        text += QLatin1Char('\n') + roff(node->description) + QLatin1Char('\n');
        if (!node->options.isEmpty())
            text += QStringLiteral(".RS\n") + optionsSection(*node) + QStringLiteral(".RE\n");
    }
    return text;
}

struct SystemPaths
{
    QString config;
    QString data;
    QString logs;
    QString socket;
    QString pidFile;
    QString installation;
    QString key;
    QString settings;
    QString accounts;
};

QString filesSection(const SystemPaths& paths, bool service)
{
    const QList<QPair<QString, QString>> files = {
        {paths.config, QStringLiteral("The configuration folder (owner only).")},
        {paths.installation,
         QStringLiteral("The installation record; its edition (standalone or managed) chooses "
                        "the commands orvV2 offers.")},
        {paths.settings, QStringLiteral("The global settings, as config get and config set "
                                        "show and change them.")},
        {paths.accounts, QStringLiteral("One file per storage account.")},
        {paths.key, QStringLiteral("The key that seals the secrets kept in the configuration. "
                                   "Back it up with the configuration: without it the stored "
                                   "passwords and keys cannot be read.")},
        {paths.data, QStringLiteral("The service's database.")},
        {QDir(paths.logs)
             .filePath(service ? QStringLiteral("orvd.log") : QStringLiteral("CommandLineV2.log")),
         QStringLiteral("The log file.")},
        {paths.socket, QStringLiteral("The socket on which the service answers the command line "
                                      "(owner only).")},
        {paths.pidFile, QStringLiteral("The running service's process id, locked while it runs.")},
    };
    QString text;
    for (const auto& file : files)
        text += QStringLiteral(".TP\n.I %1\n%2\n").arg(roff(file.first), roff(file.second));
    return text;
}

bool writeFile(const QString& path, const QString& contents)
{
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(contents.toUtf8()) < 0 || !file.commit()) {
        std::fprintf(stderr, "orv-docgen: cannot write %s: %s\n", qPrintable(path),
                     qPrintable(file.errorString()));
        return false;
    }
    return true;
}

bool writePage(const QString& templatePath, const QString& outputPath,
               const QMap<QString, QString>& parts)
{
    QFile file(templatePath);
    if (!file.open(QIODevice::ReadOnly)) {
        std::fprintf(stderr, "orv-docgen: cannot read %s\n", qPrintable(templatePath));
        return false;
    }
    QString page = QString::fromUtf8(file.readAll());
    for (auto it = parts.cbegin(); it != parts.cend(); ++it) {
        if (!page.contains(it.key())) {
            std::fprintf(stderr, "orv-docgen: %s has no %s\n", qPrintable(templatePath),
                         qPrintable(it.key()));
            return false;
        }
        page.replace(it.key(), it.value());
    }
    return writeFile(outputPath, page);
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() != 3) {
        std::fprintf(stderr, "usage: orv-docgen <output folder> <template folder>\n");
        return 2;
    }
    const QDir output(arguments.at(1));
    const QDir templates(arguments.at(2));

    // The system locations, as the programs use them without ORV_ROOT...
    qunsetenv("ORV_ROOT");
    Orv::Defines::AppPath::reload();
    const auto& system = Orv::Defines::AppPath::to();
    const SystemPaths paths{
        system.config(),        system.data(),           system.logs(),
        system.serviceSocket(), system.servicePidFile(), system.installationFile(),
        system.keyFile(),       system.settingsFile(),   system.accounts()};
    // ...and the tree of a fresh installation: the settings of the machine the
    // build runs on must not change what ships.
    QTemporaryDir instance;
    if (!instance.isValid() || !qputenv("ORV_ROOT", QFile::encodeName(instance.path()))) {
        std::fprintf(stderr, "orv-docgen: cannot make a temporary instance\n");
        return 1;
    }
    Orv::Defines::AppPath::reload();
    const Orv::CLI::StandaloneCommandGroup tree;
    const Node root = walk(tree, QString());

    const QString version = Kel::Core::Version::string();
    const bool written = output.mkpath(QStringLiteral(".")) &&
                         writeFile(output.filePath(QStringLiteral("orvV2")), completion(root)) &&
                         writePage(templates.filePath(QStringLiteral("orvV2.1.in")),
                                   output.filePath(QStringLiteral("orvV2.1")),
                                   {{QStringLiteral("@VERSION@"), version},
                                    {QStringLiteral("@COMMANDS@"), commandsSection(root)},
                                    {QStringLiteral("@FILES@"), filesSection(paths, false)}}) &&
                         writePage(templates.filePath(QStringLiteral("orvd.8.in")),
                                   output.filePath(QStringLiteral("orvd.8")),
                                   {{QStringLiteral("@VERSION@"), version},
                                    {QStringLiteral("@FILES@"), filesSection(paths, true)},
                                    {QStringLiteral("@LOGS@"), roff(paths.logs)}});
    return written ? 0 : 1;
}
