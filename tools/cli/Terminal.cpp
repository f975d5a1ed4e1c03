#include "tools/cli/Terminal.h"

#include <algorithm>

#ifdef Q_OS_WIN
#include <io.h>
#else
#include <unistd.h>
#endif

bool isTerminal(std::FILE* stream)
{
#ifdef Q_OS_WIN
    return _isatty(_fileno(stream)) != 0;
#else
    return isatty(fileno(stream)) == 1;
#endif
}

QString printable(QString text)
{
    std::replace_if(
        text.begin(), text.end(), [](QChar character) { return character.category() == QChar::Other_Control; }, u' ');
    return text;
}
