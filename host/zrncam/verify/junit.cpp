#include "verify/junit.h"

#include "client/result_codes.h"
#include "verify/row_text.h"

#include <QStringList>
#include <QXmlStreamWriter>

using ContractSpace::CheckRow;
using ContractSpace::CheckStatus;

QByteArray junitReport(const ContractSpace::Account& account, const QString& serial)
{
    QByteArray document;
    QXmlStreamWriter xml(&document);
    xml.setAutoFormatting(true);
    xml.writeStartDocument();
    xml.writeStartElement(QStringLiteral("testsuite"));
    xml.writeAttribute(QStringLiteral("name"), QStringLiteral("zrncam verify ") + serial);
    xml.writeAttribute(QStringLiteral("tests"),
                       QString::number(static_cast<int>(account.rows().size())));
    xml.writeAttribute(QStringLiteral("failures"),
                       QString::number(account.count(CheckStatus::Failed)));
    xml.writeAttribute(QStringLiteral("skipped"),
                       QString::number(account.count(CheckStatus::NotSupported)));
    for (const CheckRow& row : account.rows()) {
        xml.writeStartElement(QStringLiteral("testcase"));
        xml.writeAttribute(QStringLiteral("classname"), row.group);
        xml.writeAttribute(QStringLiteral("name"), row.name);
        if (row.status != CheckStatus::Passed) {
            QStringList message;
            if (row.code) {
                message += QString::fromStdString(zrn::describeResult(*row.code));
            }
            message += rowDetail(row);
            message.removeAll(QString());
            xml.writeEmptyElement(row.status == CheckStatus::Failed ? QStringLiteral("failure")
                                                                    : QStringLiteral("skipped"));
            xml.writeAttribute(QStringLiteral("message"), message.join(QStringLiteral("; ")));
        }
        xml.writeEndElement();
    }
    xml.writeEndDocument();
    return document;
}
