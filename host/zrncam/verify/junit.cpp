#include "verify/junit.h"

#include "common/result_codes.h"

#include <QXmlStreamWriter>

QByteArray junitReport(const Compliance& compliance, const QString& serial)
{
    QByteArray document;
    QXmlStreamWriter xml(&document);
    xml.setAutoFormatting(true);
    xml.writeStartDocument();
    xml.writeStartElement(QStringLiteral("testsuite"));
    xml.writeAttribute(QStringLiteral("name"), QStringLiteral("zrncam verify ") + serial);
    xml.writeAttribute(QStringLiteral("tests"),
                       QString::number(static_cast<int>(compliance.rows().size())));
    xml.writeAttribute(QStringLiteral("failures"),
                       QString::number(compliance.count(CheckStatus::Failed)));
    xml.writeAttribute(QStringLiteral("skipped"),
                       QString::number(compliance.count(CheckStatus::NotSupported)));
    for (const CheckRow& row : compliance.rows()) {
        xml.writeStartElement(QStringLiteral("testcase"));
        xml.writeAttribute(QStringLiteral("classname"), row.group);
        xml.writeAttribute(QStringLiteral("name"), row.name);
        QString message = row.code ? zrnhost::describeResult(*row.code) : QString();
        if (!row.detail.isEmpty()) {
            message += message.isEmpty() ? row.detail : QStringLiteral("; ") + row.detail;
        }
        if (row.status != CheckStatus::Passed) {
            xml.writeEmptyElement(row.status == CheckStatus::Failed ? QStringLiteral("failure")
                                                                    : QStringLiteral("skipped"));
            xml.writeAttribute(QStringLiteral("message"), message);
        }
        xml.writeEndElement();
    }
    xml.writeEndDocument();
    return document;
}
