#include "macfileservices.h"

#include "fileprobe.h"

QString MacFileServices::typeOfFile(const QString &path)
{
    switch (FileProbe::kindOf(path)) {
    case FileProbe::Kind::Missing:
        return QString();
    case FileProbe::Kind::Directory:
        return QStringLiteral("public.folder");
    case FileProbe::Kind::Regular: {
        const QString found = extension(path);
        if (!found.isEmpty())
            return found;
        break;
    }
    default:
        break;
    }
    return QStringLiteral("public.data");
}

QString MacFileServices::extension(const QString &path)
{
    const int slash = path.lastIndexOf(QLatin1Char('/'));
    const int dot = path.lastIndexOf(QLatin1Char('.'));
    if (dot <= slash)
        return QString();
    return path.mid(dot + 1).toLower();
}

bool MacFileServices::isTypeIdentifier(const QString &type)
{
    return type.contains(QLatin1Char('.'));
}
