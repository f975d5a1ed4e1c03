#include "tools/fwpack/Fwpack.h"

#include "tools/fwpack/Arguments.h"
#include "tools/fwpack/PackCommand.h"
#include "tools/fwpack/ShowCommand.h"

#include <QTextStream>

namespace fwpack
{

namespace
{

ExitStatus answer(const Request& request, QTextStream& out, QTextStream& err)
{
    if (const auto* pack = std::get_if<PackRequest>(&request)) {
        return packFirmware(*pack, out, err) ? Success : Failure;
    }
    if (const auto* show = std::get_if<ShowRequest>(&request)) {
        return showFirmware(*show, out, err) ? Success : Failure;
    }
    if (const auto* refusal = std::get_if<UsageError>(&request)) {
        err << "fwpack: " << refusal->reason << "\n\n" << usageText();
        return WrongUsage;
    }
    out << usageText();
    return Success;
}

} // namespace

int run(const QStringList& arguments, QTextStream& out, QTextStream& err)
{
    const ExitStatus status = answer(parseArguments(arguments), out, err);
    err.flush();
    out.flush();
    if (out.status() != QTextStream::Ok) {
        err << "fwpack: the output cannot be written\n";
        return status == Success ? Failure : status;
    }
    return status;
}

} // namespace fwpack
