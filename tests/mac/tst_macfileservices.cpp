#include "macfileservices.h"

#include <QtTest>

#include <sys/stat.h>

// File types in the form the macOS workspace takes, and previews of the directly loaded
// picture formats only.
class TestMacFileServices : public QObject
{
    Q_OBJECT
private slots:
    void extensionIsLowerCasedAndNeedsADot();
    void typesOfWhatIsThere();
    void identifiersAreToldFromExtensions();
    void previewsFitAndOnlyOfPictures();

private:
    QString write(const QString &name, const QByteArray &data = "x");
    QTemporaryDir dir;
};

QString TestMacFileServices::write(const QString &name, const QByteArray &data)
{
    QFile file(dir.filePath(name));
    if (!file.open(QIODevice::WriteOnly))
        return QString();
    file.write(data);
    return file.fileName();
}

void TestMacFileServices::extensionIsLowerCasedAndNeedsADot()
{
    QCOMPARE(MacFileServices::extension(QStringLiteral("/p/photo.PNG")), QStringLiteral("png"));
    QCOMPARE(MacFileServices::extension(QStringLiteral("/p/archive.")), QString());
    QCOMPARE(MacFileServices::extension(QStringLiteral("/p/README")), QString());
    QCOMPARE(MacFileServices::extension(QStringLiteral("/p.d/README")), QString());
    QCOMPARE(MacFileServices::extension(QStringLiteral("/p/a.tar.gz")), QStringLiteral("gz"));
}

void TestMacFileServices::typesOfWhatIsThere()
{
    MacFileServices files;
    QCOMPARE(files.typeOfFile(dir.path()), QStringLiteral("public.folder"));
    QCOMPARE(files.typeOfFile(write(QStringLiteral("Notes.TXT"))), QStringLiteral("txt"));
    QCOMPARE(files.typeOfFile(write(QStringLiteral("README"))), QStringLiteral("public.data"));
    QCOMPARE(files.typeOfFile(dir.filePath(QStringLiteral("absent.txt"))), QString());
    // A named pipe is no text file, whatever it is called; asking does not open it.
    const QString fifo = dir.filePath(QStringLiteral("pipe.txt"));
    QCOMPARE(mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);
    QCOMPARE(files.typeOfFile(fifo), QStringLiteral("public.data"));
}

void TestMacFileServices::identifiersAreToldFromExtensions()
{
    QVERIFY(MacFileServices::isTypeIdentifier(QStringLiteral("public.folder")));
    QVERIFY(MacFileServices::isTypeIdentifier(QStringLiteral("com.adobe.pdf")));
    QVERIFY(!MacFileServices::isTypeIdentifier(QStringLiteral("pdf")));
}

void TestMacFileServices::previewsFitAndOnlyOfPictures()
{
    MacFileServices files;
    QImage big(4000, 3000, QImage::Format_RGB32);
    big.fill(Qt::red);
    const QString bigPath = dir.filePath(QStringLiteral("big.PNG"));
    QVERIFY(big.save(bigPath, "PNG"));
    QCOMPARE(files.previewForFile(bigPath, 400, 400).size(), QSize(400, 300));

    QImage small(100, 100, QImage::Format_RGB32);
    small.fill(Qt::blue);
    const QString smallPath = dir.filePath(QStringLiteral("small.jpg"));
    QVERIFY(small.save(smallPath, "JPG"));
    QCOMPARE(files.previewForFile(smallPath, 400, 400).size(), QSize(100, 100));

    // A PDF has no preview, nor has a picture under a name without a picture's extension.
    QVERIFY(
        files.previewForFile(write(QStringLiteral("doc.pdf"), "%PDF-1.4\n"), 400, 400).isNull());
    QVERIFY(QFile::copy(smallPath, dir.filePath(QStringLiteral("noext"))));
    QVERIFY(files.previewForFile(dir.filePath(QStringLiteral("noext")), 400, 400).isNull());
}

QTEST_GUILESS_MAIN(TestMacFileServices)
#include "tst_macfileservices.moc"
