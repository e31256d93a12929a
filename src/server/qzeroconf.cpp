#include "qzeroconf.h"

// The TXT records; publishing is in qzeroconf_<implementation>.cpp, chosen by the build.

void QZeroConf::addServiceTxtRecord(QString name, QString value)
{
    name.append(QLatin1Char('='));
    name.append(value);
    addServiceTxtRecord(name);
}

void QZeroConf::addServiceTxtRecord(QString name)
{
    m_txt.append(char(name.length()));
    m_txt.append(name.toUtf8());
}

void QZeroConf::clearServiceTxtRecords() { m_txt.clear(); }

QByteArray QZeroConf::serviceTxtRecords() const { return m_txt; }
