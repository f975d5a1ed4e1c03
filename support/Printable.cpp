#include "support/Printable.h"

namespace
{

bool isSafe(char32_t character)
{
    const QChar::Category category = QChar::category(character);
    return QChar::isPrint(character) && category != QChar::Separator_Line && category != QChar::Separator_Paragraph;
}

} // namespace

QString printable(const QString& text)
{
    QString result;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const bool pair = text[i].isHighSurrogate() && i + 1 < text.size() && text[i + 1].isLowSurrogate();
        const char32_t character = pair ? QChar::surrogateToUcs4(text[i], text[i + 1]) : text[i].unicode();
        if (isSafe(character)) {
            result += QStringView(text).mid(i, pair ? 2 : 1);
        } else {
            result += QStringLiteral("\\u{%1}").arg(uint(character), 4, 16, QLatin1Char('0'));
        }
        i += pair ? 1 : 0;
    }
    return result;
}

QString quoted(const QString& text)
{
    QString marked = text;
    marked.replace(u'\\', QLatin1String("\\\\")).replace(u'"', QLatin1String("\\\""));
    return u'"' + printable(marked) + u'"';
}

QString hexNumber(std::uint32_t number)
{
    return QLatin1String("0x") + QString::number(number, 16).toUpper().rightJustified(4, u'0');
}

QString counted(qsizetype number, const QString& noun)
{
    return QStringLiteral("%1 %2%3").arg(number).arg(noun, number == 1 ? QString() : QStringLiteral("s"));
}
