#include "table/boardlist.h"

#include <QMap>
#include <QStringList>

void boardlist::fromString(const QString &text)
{
    count = 0;
    const QStringList parts = text.split(QLatin1Char(' '), Qt::SkipEmptyParts);
    for (const QString &part : parts) {
        const QStringList pieces = part.split(QLatin1Char(':'), Qt::KeepEmptyParts);
        if (pieces.size() != 2)
            continue;
        bool ok = false;
        const int first = pieces.at(0).toInt(&ok, 10);
        if (!ok)
            continue;

        QList<int> numbers;
        bool failed = false;
        const QStringList numberTexts = pieces.at(1).split(QLatin1Char(','), Qt::KeepEmptyParts);
        for (const QString &item : numberTexts) {
            const int n = item.toInt(&ok, 10);
            if (ok)
                numbers.append(n);
            else
                failed = true;
        }
        if (failed) {
            // A group with a bad number drops everything read so far.
            count = 0;
            continue;
        }
        for (int n : numbers) {
            // Deliberately one short of the capacity: the text form holds 49 pairs.
            if (count + 1 >= Capacity)
                throw "List size exceed";
            items[count].first = first;
            items[count].second = n;
            ++count;
        }
    }
}

boardlist boardlist::fromText(const QString &text)
{
    boardlist list {};
    list.fromString(text);
    return list;
}

QString boardlist::toString() const
{
    QMap<QString, QStringList> groups;
    const int n = qBound(0, int(count), int(Capacity));
    for (int i = 0; i < n; ++i)
        groups[QString::number(items[i].first)].append(QString::number(items[i].second));

    QStringList texts;
    for (auto it = groups.begin(); it != groups.end(); ++it) {
        QStringList seconds = it.value();
        seconds.sort();
        texts.append(it.key() + QLatin1Char(':') + seconds.join(QLatin1Char(',')));
    }
    texts.sort();
    return texts.join(QLatin1Char(' '));
}
