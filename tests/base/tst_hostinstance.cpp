// SPDX-License-Identifier: MIT
// A program that defines ICore::instance() itself: the library has to use that definition.
#include "base/hostcore.h"

#include <QtTest>

#include <dlfcn.h>

ICore* ICore::instance()
{
    static HostCore core;
    return &core;
}

class TestHostInstance : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void ownDefinitionWins()
    {
        // The name that the library's calls are bound to, looked up as the dynamic linker does.
        void* const bound = dlsym(RTLD_DEFAULT, "_ZN5ICore8instanceEv");
        QVERIFY(bound == reinterpret_cast<void*>(&ICore::instance));
        ICore::setInstance(nullptr);
        QVERIFY(ICore::instance());
    }
};

QTEST_APPLESS_MAIN(TestHostInstance)

#include "tst_hostinstance.moc"
