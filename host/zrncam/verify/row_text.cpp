#include "verify/row_text.h"

#include "common/result_codes.h"

QString rowDetail(const ContractSpace::CheckRow& row)
{
    return row.expected ? QStringLiteral("expected %1").arg(zrnhost::describeResult(*row.expected))
                        : row.detail;
}
