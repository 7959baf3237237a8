#include "toolcommands.h"

#include "tablefile.h"

#include "io/filterprogress.h"
#include "io/tableio.h"
#include "model/celltext.h"
#include "runtime/exception.h"
#include "runtime/iapphub.h"
#include "table/table.h"

#include <QCommandLineParser>
#include <QDir>
#include <QFileInfo>
#include <QTextStream>

namespace {

const int kUsage = 2;
const int kFileError = 1;

// A bar on the terminal while a long file is read; silent elsewhere.
class ProgressBar : public FilterProgress
{
public:
    ProgressBar(QTextStream &err, bool terminal, const QString &label)
        : m_err(err), m_terminal(terminal), m_label(label)
    {
    }
    ~ProgressBar() override
    {
        if (m_shown)
            m_err << "\r\x1b[K" << Qt::flush;
    }
    bool operator()(int current, int total) override
    {
        if (!m_terminal || total < 200000)
            return true;
        const int percent = int(qint64(current) * 100 / total);
        if (percent == m_percent)
            return true;
        m_percent = percent;
        m_shown = true;
        const int filled = percent * 30 / 100;
        m_err << '\r' << m_label << " [" << QString(filled, QLatin1Char('#'))
              << QString(30 - filled, QLatin1Char('.')) << "] " << percent << '%' << Qt::flush;
        return true;
    }
    bool filter(const Record &) const override { return true; }

private:
    QTextStream &m_err;
    bool m_terminal;
    QString m_label;
    int m_percent = -1;
    bool m_shown = false;
};

// Says whether table files are written compressed, for the convert command.
class ToolHub : public IAppHub, public ITableRegistry
{
public:
    explicit ToolHub(bool compress) : m_compress(compress), m_previous(IAppHub::setInstance(this)) { }
    ~ToolHub() override { IAppHub::setInstance(m_previous); }
    ITableRegistry *tableRegistry() override { return this; }
    Table *table(const QString &) const override { return nullptr; }
    bool contains(const QString &) const override { return false; }
    bool compressTables() const override { return m_compress; }
    void registerJoin(TableJoin *) override { }

private:
    bool m_compress;
    IAppHub *m_previous;
};

// Reaches the reader's choice of convertors, so that diff shows what a read
// would really do.
class ConvertorChoice : public TableIO
{
public:
    explicit ConvertorChoice(Table *target) : TableIO(target) { }
    QList<FieldDefConvertor *> choose(const Table *source)
    {
        QList<FieldDefConvertor *> list;
        make_fromDefs(list, source, Convertors());
        return list;
    }
};

QString typeText(const TableColumnDef &column)
{
    return FieldType::typeNameWithLength(column.type, column.length);
}

QString yesNo(bool value)
{
    return value ? QStringLiteral("yes") : QStringLiteral("no");
}

// Left-aligned columns of text.
QString tableText(const QList<QStringList> &rows)
{
    QVector<int> widths;
    for (const QStringList &row : rows) {
        widths.resize(qMax(widths.size(), row.size()));
        for (int i = 0; i < row.size(); ++i)
            widths[i] = qMax(widths[i], row.at(i).size());
    }
    QString text;
    for (const QStringList &row : rows) {
        QString line = QStringLiteral("  ");
        for (int i = 0; i < row.size(); ++i)
            line += i + 1 < row.size() ? row.at(i).leftJustified(widths[i] + 2) : row.at(i);
        text += line + QLatin1Char('\n');
    }
    return text;
}

std::unique_ptr<Table> tableOfColumns(const QString &name, const TableIO::TableHeader &header)
{
    std::unique_ptr<Table> table(new Table(name));
    for (const TableColumnDef &column : header.columns)
        table->addColumn(column);
    return table;
}

int info(TableFile &file, QTextStream &out)
{
    const TableIO::TableHeader &h = file.header();
    out << "file      " << file.path() << '\n'
        << "form      " << (file.isCompressed() ? "gzip" : "plain") << '\n'
        << "size      " << file.size() << " bytes\n"
        << "version   0x" << QString::number(h.version, 16) << '\n'
        << "rows      " << h.rowCount << '\n'
        << "master    " << (h.masterColumns.isEmpty() ? QStringLiteral("(order of arrival)")
                                                       : h.masterColumns.join(QStringLiteral(", ")))
        << '\n'
        << "columns   " << h.columns.size() << '\n';
    QList<QStringList> rows { { QStringLiteral("#"), QStringLiteral("name"), QStringLiteral("title"),
                                QStringLiteral("type"), QStringLiteral("length"),
                                QStringLiteral("nullable"), QStringLiteral("flag") } };
    for (int i = 0; i < h.columns.size(); ++i) {
        const TableColumnDef &c = h.columns.at(i);
        rows.append({ QString::number(i), c.name, c.title, QString::fromLatin1(FieldType::typeName(c.type)),
                      QString::number(c.length), yesNo(c.nullable), yesNo(c.flag) });
    }
    out << tableText(rows);
    return 0;
}

int dump(TableFile &file, const QCommandLineParser &parser, QTextStream &out, QTextStream &err,
         bool terminal)
{
    const QString format = parser.value(QStringLiteral("format"));
    if (format != QLatin1String("csv") && format != QLatin1String("json")) {
        err << "tabledb-tool: --format: expected csv or json, got \"" << format << "\"\n";
        return kUsage;
    }
    qint64 limit = -1;
    if (parser.isSet(QStringLiteral("limit"))) {
        bool ok = false;
        limit = parser.value(QStringLiteral("limit")).toLongLong(&ok);
        if (!ok || limit < 0) {
            err << "tabledb-tool: --limit: expected a whole number of rows, got \""
                << parser.value(QStringLiteral("limit")) << "\"\n";
            return kUsage;
        }
    }
    ProgressBar progress(err, terminal, file.path());
    QString problem;
    std::unique_ptr<Table> table = file.readTable(progress, &problem);
    QList<int> columns;
    if (parser.isSet(QStringLiteral("columns"))) {
        for (const QString &name : parser.value(QStringLiteral("columns")).split(QLatin1Char(','))) {
            const int column = table->columnIndex(name.trimmed());
            if (column < 0) {
                QStringList known;
                for (int i = 0; i < table->columnCount(); ++i)
                    known.append(table->columnName(i));
                err << "tabledb-tool: " << file.path() << " has no column \"" << name.trimmed()
                    << "\"; its columns are " << known.join(QStringLiteral(", ")) << '\n';
                return kUsage;
            }
            columns.append(column);
        }
    } else {
        for (int i = 0; i < table->columnCount(); ++i)
            columns.append(i);
    }

    const bool csv = format == QLatin1String("csv");
    if (csv) {
        QStringList names;
        for (int column : columns)
            names.append(CellText::csv(table->columnName(column)));
        out << names.join(QLatin1Char(',')) << "\r\n";
    }
    const int count = limit < 0 ? table->rowCount() : int(qMin<qint64>(limit, table->rowCount()));
    for (int i = 0; i < count; ++i) {
        const Record &row = table->at(i);
        QStringList cells;
        for (int column : columns) {
            const Field cell = row.data(column);
            if (csv)
                cells.append(CellText::csv(CellText::text(cell)));
            else
                cells.append(CellText::jsonString(table->columnName(column)) + QLatin1Char(':')
                             + CellText::json(cell));
        }
        if (csv)
            out << cells.join(QLatin1Char(',')) << "\r\n";
        else
            out << '{' << cells.join(QLatin1Char(',')) << "}\n";
    }
    out.flush();
    if (!problem.isEmpty()) {
        err << "tabledb-tool: " << problem << '\n';
        return kFileError;
    }
    return 0;
}

int convert(TableFile &file, const QCommandLineParser &parser, QTextStream &out, QTextStream &err,
            bool terminal)
{
    const QString to = parser.value(QStringLiteral("to"));
    if (to != QLatin1String("gz") && to != QLatin1String("plain")) {
        err << "tabledb-tool: convert needs --to gz or --to plain\n";
        return kUsage;
    }
    const bool compress = to == QLatin1String("gz");
    QString target = parser.isSet(QStringLiteral("output")) ? parser.value(QStringLiteral("output"))
                                                            : file.path();
    if (target.endsWith(QLatin1String(".gz")))
        target.chop(3);
    const QFileInfo targetInfo(target);
    if (targetInfo.fileName().isEmpty()) {
        err << "tabledb-tool: -o: \"" << target << "\" names no file\n";
        return kUsage;
    }

    ProgressBar progress(err, terminal, file.path());
    QString problem;
    std::unique_ptr<Table> table = file.readTable(progress, &problem, targetInfo.fileName());
    if (!problem.isEmpty()) {
        // A damaged file is not rewritten: the copy would look whole.
        err << "tabledb-tool: " << problem << "; nothing written\n";
        return kFileError;
    }
    ToolHub hub(compress);
    TableIO io(table.get());
    try {
        io.write(targetInfo.dir());
    } catch (const Exception &e) {
        err << "tabledb-tool: " << e.message() << '\n';
        return kFileError;
    }
    const QString written = io.fileName(targetInfo.dir()) + (compress ? QStringLiteral(".gz") : QString());
    out << "wrote " << written << ": " << table->rowCount() << " rows, "
        << QFileInfo(written).size() << " bytes\n";
    return 0;
}

int diff(TableFile &first, TableFile &second, QTextStream &out)
{
    const TableIO::TableHeader &a = first.header();
    const TableIO::TableHeader &b = second.header();
    std::unique_ptr<Table> source = tableOfColumns(QStringLiteral("saved"), a);
    std::unique_ptr<Table> target = tableOfColumns(second.tableName(), b);

    QStringList changes;
    for (const TableColumnDef &c : a.columns) {
        const int other = target->columnIndex(c.name);
        if (other < 0) {
            changes.append(QStringLiteral("- %1 %2").arg(c.name, typeText(c)));
            continue;
        }
        const TableColumnDef &d = target->columnDef(other);
        if (c.type != d.type || c.length != d.length || c.nullable != d.nullable)
            changes.append(QStringLiteral("~ %1 %2%3 -> %4%5")
                                   .arg(c.name, typeText(c),
                                        c.nullable ? QStringLiteral(" nullable") : QString(),
                                        typeText(d),
                                        d.nullable ? QStringLiteral(" nullable") : QString()));
    }
    for (const TableColumnDef &d : b.columns) {
        if (source->columnIndex(d.name) < 0)
            changes.append(QStringLiteral("+ %1 %2").arg(d.name, typeText(d)));
    }
    if (a.masterColumns != b.masterColumns)
        changes.append(QStringLiteral("~ master (%1) -> (%2)")
                               .arg(a.masterColumns.join(QStringLiteral(", ")),
                                    b.masterColumns.join(QStringLiteral(", "))));
    out << "schema of " << first.path() << " -> " << second.path() << ":\n";
    if (changes.isEmpty())
        out << "  the same columns\n";
    for (const QString &change : changes)
        out << "  " << change << '\n';

    out << "reading " << first.path() << " with the columns of " << second.path() << ":\n";
    QList<FieldDefConvertor *> list = ConvertorChoice(target.get()).choose(source.get());
    QList<QStringList> rows;
    for (int i = 0; i < target->columnCount(); ++i) {
        const QString name = target->columnName(i);
        FieldDefConvertor *convertor = nullptr;
        for (FieldDefConvertor *c : list) {
            if (c->to && c->to->name == name)
                convertor = c;
        }
        QString how;
        if (!convertor)
            how = QStringLiteral("not in the file: as a new row has it");
        else if (dynamic_cast<TableIO::FieldDefConvertor_CopyString *>(convertor))
            how = QStringLiteral("shared text (FieldDefConvertor_CopyString)");
        else if (dynamic_cast<TableIO::FieldDefConvertor_Copy4 *>(convertor))
            how = QStringLiteral("4-byte copy (FieldDefConvertor_Copy4)");
        else if (dynamic_cast<TableIO::FieldDefConvertor_Copy8 *>(convertor))
            how = QStringLiteral("8-byte copy (FieldDefConvertor_Copy8)");
        else if (auto *copy = dynamic_cast<TableIO::FieldDefConvertor_Copy *>(convertor))
            how = QStringLiteral("%1-byte copy (FieldDefConvertor_Copy)").arg(copy->size);
        else
            how = QStringLiteral("converted from %1 (FieldDefConvertor)").arg(typeText(*convertor->from));
        rows.append({ name, how });
    }
    for (const TableColumnDef &c : a.columns) {
        if (target->columnIndex(c.name) < 0)
            rows.append({ c.name, QStringLiteral("dropped") });
    }
    qDeleteAll(list);
    out << tableText(rows);
    return 0;
}

int check(TableFile &file, QTextStream &out, QTextStream &err, bool terminal)
{
    ProgressBar progress(err, terminal, file.path());
    QString problem;
    std::unique_ptr<Table> table = file.readTable(progress, &problem);
    if (!problem.isEmpty()) {
        err << "tabledb-tool: " << problem << '\n';
        return kFileError;
    }
    out << file.path() << ": whole, " << table->rowCount() << " rows of " << table->columnCount()
        << " columns\n";
    return 0;
}

} // namespace

int runTool(const QStringList &arguments, QTextStream &out, QTextStream &err, bool terminal)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
            "Looks inside tabledb table files (plain, or gzip when the name ends in .gz).\n\n"
            "Commands:\n"
            "  info FILE                 version, form, columns, master columns, rows, size\n"
            "  dump FILE                 the rows as CSV or JSON lines\n"
            "  convert FILE --to gz|plain [-o OUT]\n"
            "                            rewrite in the other form, replacing it safely\n"
            "  diff FILE1 FILE2          schema difference, and how FILE1 reads as FILE2\n"
            "  check FILE                read it whole; exit code 1 if damaged"));
    const QCommandLineOption help = parser.addHelpOption();
    parser.addOptions({
            { QStringLiteral("format"), QStringLiteral("dump: csv or json."), QStringLiteral("FORMAT"),
              QStringLiteral("csv") },
            { QStringLiteral("columns"), QStringLiteral("dump: the columns to show, by name."),
              QStringLiteral("a,b") },
            { QStringLiteral("limit"), QStringLiteral("dump: at most N rows."), QStringLiteral("N") },
            { QStringLiteral("to"), QStringLiteral("convert: gz or plain."), QStringLiteral("FORM") },
            { { QStringLiteral("o"), QStringLiteral("output") },
              QStringLiteral("convert: the file to write (default: beside the input)."),
              QStringLiteral("OUT") },
    });
    parser.addPositionalArgument(QStringLiteral("command"), QStringLiteral("info, dump, convert, diff or check"));
    if (!parser.parse(arguments)) {
        err << "tabledb-tool: " << parser.errorText() << "\nTry 'tabledb-tool --help'.\n";
        return kUsage;
    }
    if (parser.isSet(help)) {
        out << parser.helpText();
        return 0;
    }
    const QStringList positional = parser.positionalArguments();
    const QString command = positional.value(0);
    const int files = command == QLatin1String("diff") ? 2 : 1;
    static const QStringList commands { QStringLiteral("info"), QStringLiteral("dump"),
                                        QStringLiteral("convert"), QStringLiteral("diff"),
                                        QStringLiteral("check") };
    if (!commands.contains(command) || positional.size() != files + 1) {
        err << "tabledb-tool: "
            << (command.isEmpty() ? QStringLiteral("no command")
                : !commands.contains(command)
                        ? QStringLiteral("unknown command \"%1\"").arg(command)
                        : QStringLiteral("%1 takes %2 file name%3")
                                  .arg(command)
                                  .arg(files)
                                  .arg(files == 1 ? QString() : QStringLiteral("s")))
            << "\nTry 'tabledb-tool --help'.\n";
        return kUsage;
    }

    TableFile first, second;
    QString error;
    if (!first.open(positional.at(1), &error)
        || (files == 2 && !second.open(positional.at(2), &error))) {
        err << "tabledb-tool: " << error << '\n';
        return kFileError;
    }
    if (command == QLatin1String("info"))
        return info(first, out);
    if (command == QLatin1String("dump"))
        return dump(first, parser, out, err, terminal);
    if (command == QLatin1String("convert"))
        return convert(first, parser, out, err, terminal);
    if (command == QLatin1String("diff"))
        return diff(first, second, out);
    return check(first, out, err, terminal);
}
