// SPDX-License-Identifier: MIT
// A program that defines ICore::instance() itself: the library has to use that definition.
#include "base/hostcore.h"

#include <QtTest>

#include <dlfcn.h>

namespace {

HostCore* hostCore()
{
    static HostCore core;
    return &core;
}

} // namespace

ICore* ICore::instance()
{
    return hostCore();
}

class TestHostInstance : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void ownDefinitionWins();
};

void TestHostInstance::ownDefinitionWins()
{
    QCOMPARE(ICore::instance(), static_cast<ICore*>(hostCore()));

    // The name that the library's calls are bound to, looked up as the dynamic linker does.
    void* const bound = dlsym(RTLD_DEFAULT, "_ZN5ICore8instanceEv");
    QVERIFY(bound);
    using Instance = ICore* (*)();
    QCOMPARE(reinterpret_cast<Instance>(bound)(), static_cast<ICore*>(hostCore()));

    ICore::setInstance(nullptr);
    QVERIFY(ICore::instance());
}

QTEST_APPLESS_MAIN(TestHostInstance)

#include "tst_hostinstance.moc"
