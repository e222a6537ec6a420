#include "verify/row_text.h"

#include "client/result_codes.h"

QString rowDetail(const ContractSpace::CheckRow& row)
{
    return row.expected ? QString::fromStdString("expected " + zrn::describeResult(*row.expected))
                        : row.detail;
}
