#pragma once

#include <QString>
#include <QStringList>

/// A table in a document, compared with the one that the code's tables make.
///
/// With ZRN_WRITE_DOCUMENTS in the environment the document is written anew, not compared.
///
/// @param document file below docs/
/// @param head cells of the table's first row
/// @param rows cells of the rows that the table must have
/// @return what is wrong: the table as it ought to be, or empty
QString differenceInDocument(const QString& document, const QStringList& head,
                             const QList<QStringList>& rows);
