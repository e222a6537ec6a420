#include "document_table.h"

#include <QFile>

namespace
{

QString lineOf(const QStringList& cells)
{
    QString line = QStringLiteral("|");
    for (const QString& cell : cells) {
        line += cell.isEmpty() ? QStringLiteral(" |") : QStringLiteral(" %1 |").arg(cell);
    }
    return line + QLatin1Char('\n');
}

} // namespace

QString differenceInDocument(const QString& document, const QStringList& head,
                             const QList<QStringList>& rows)
{
    QString wanted = lineOf(head) + QLatin1Char('|') +
                     QStringLiteral("---|").repeated(head.size()) + QLatin1Char('\n');
    for (const QStringList& cells : rows) {
        wanted += lineOf(cells);
    }

    QFile file(QStringLiteral(DOCUMENTS_DIR "/") + document);
    if (!file.open(QIODevice::ReadOnly)) {
        return QStringLiteral("%1 cannot be read").arg(file.fileName());
    }
    QString text = QString::fromUtf8(file.readAll());
    file.close();
    const auto begin = text.indexOf(lineOf({head.front()}).chopped(1));
    if (begin < 0) {
        return QStringLiteral("%1 has no table with \"%2\"").arg(document, head.front());
    }
    // A table ends with the first line that is none of its rows.
    auto end = begin;
    while (end < text.size() && text.at(end) == QLatin1Char('|')) {
        end = text.indexOf(QLatin1Char('\n'), end) + 1;
    }
    if (text.mid(begin, end - begin) == wanted) {
        return {};
    }
    if (!qEnvironmentVariableIsSet("ZRN_WRITE_DOCUMENTS")) {
        return QStringLiteral("%1 ought to have the table\n%2").arg(document, wanted);
    }
    text.replace(begin, end - begin, wanted);
    if (!file.open(QIODevice::WriteOnly) || file.write(text.toUtf8()) < 0) {
        return QStringLiteral("%1 cannot be written").arg(file.fileName());
    }
    return {};
}
