#include "model/celltext.h"

#include "table/field.h"

#include <cmath>

QString CellText::text(const Field &cell)
{
    return cell.isNull() ? QString() : cell.toString();
}

QString CellText::csv(const QString &text)
{
    bool quote = !text.isEmpty() && (text.front().isSpace() || text.back().isSpace());
    for (const QChar c : text) {
        if (c == QLatin1Char(',') || c == QLatin1Char('"') || c == QLatin1Char('\n')
            || c == QLatin1Char('\r')) {
            quote = true;
            break;
        }
    }
    if (!quote)
        return text;
    QString result = text;
    result.replace(QLatin1Char('"'), QLatin1String("\"\""));
    return QLatin1Char('"') + result + QLatin1Char('"');
}

QString CellText::jsonString(const QString &text)
{
    QString result;
    result.reserve(text.size() + 2);
    result += QLatin1Char('"');
    for (const QChar c : text) {
        switch (c.unicode()) {
        case '"':
            result += QLatin1String("\\\"");
            break;
        case '\\':
            result += QLatin1String("\\\\");
            break;
        case '\n':
            result += QLatin1String("\\n");
            break;
        case '\r':
            result += QLatin1String("\\r");
            break;
        case '\t':
            result += QLatin1String("\\t");
            break;
        default:
            if (c.unicode() < 0x20)
                result += QStringLiteral("\\u%1").arg(c.unicode(), 4, 16, QLatin1Char('0'));
            else
                result += c;
        }
    }
    result += QLatin1Char('"');
    return result;
}

QString CellText::json(const Field &cell)
{
    if (cell.isNull())
        return QStringLiteral("null");
    switch (cell.type()) {
    case FieldType::Integer:
        return QString::number(cell.asInteger());
    case FieldType::Integer64:
        // Written out in full: a reader that wants all 64 bits can have them.
        return QString::number(cell.asInteger64());
    case FieldType::Double: {
        const double value = cell.asDouble();
        return std::isfinite(value) ? QString::number(value, 'g', 17) : QStringLiteral("null");
    }
    default:
        return jsonString(cell.toString());
    }
}
