// SPDX-License-Identifier: MIT
// Runs a fuzz target over the files in the given directories, each as it is, cut everywhere and
// with every byte changed, for builds without libFuzzer.
#include <QDirIterator>
#include <QFile>

#include <cstdio>

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size);

static void run(const QByteArray& bytes)
{
    LLVMFuzzerTestOneInput(reinterpret_cast<const unsigned char*>(bytes.constData()),
                           static_cast<size_t>(bytes.size()));
}

int main(int argc, char** argv)
{
    int inputs = 0;
    for (int i = 1; i < argc; ++i) {
        QDirIterator it(QFile::decodeName(argv[i]), QDir::Files);
        while (it.hasNext()) {
            QFile file(it.next());
            if (!file.open(QIODevice::ReadOnly))
                return 1;
            const QByteArray bytes = file.readAll();
            std::printf("%s\n", qPrintable(it.fileName()));
            run(bytes);
            for (int at = 0; at < bytes.size(); ++at) {
                run(bytes.left(at));
                for (const int change : {0x01, 0x84, 0x7F}) {
                    QByteArray changed = bytes;
                    changed[at] = static_cast<char>(changed.at(at) ^ change);
                    run(changed);
                }
            }
            ++inputs;
        }
    }
    std::printf("%d inputs\n", inputs);
    return inputs > 0 ? 0 : 1;
}
