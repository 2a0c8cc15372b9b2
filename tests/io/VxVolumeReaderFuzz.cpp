// libFuzzer target of the volume readers: the first byte picks the format (the file name's
// extension) and whether to load labels, the rest is the file. Any input must give a field or one
// line of error naming the file at fault (the header or the data file it names); the sanitizers
// catch every bad access on the way.
#include <io/VxVolumeReader.h>

#include <kx/KxHandle.h>
#include <vx/VxRegScalarField3.h>

#include <QTemporaryDir>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <unistd.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // One scratch folder per process, on a memory file system when there is one; removed when the
    // fuzzer exits.
    static const QTemporaryDir dir(::access("/dev/shm", W_OK) == 0 ? "/dev/shm/vxfuzz-XXXXXX"
                                                                   : "/tmp/vxfuzz-XXXXXX");
    static const char* const kExtensions[] = {".nrrd", ".nhdr", ".mha", ".mhd", ".vtk", ".nii", ".hdr"};
    if (size < 1) return 0;
    if (!dir.isValid()) std::abort();
    const std::string path = dir.path().toStdString() + "/in" + kExtensions[data[0] % 7];
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) std::abort();
    std::fwrite(data + 1, 1, size - 1, f);
    std::fclose(f);

    VxReadOptions options;
    options.labels = (data[0] & 0x80) != 0;
    QString error;
    KxHandle<VxSpatialData> result = VxVolumeReader::read(QString::fromStdString(path), options, &error);
    // "<file>: <problem>", where the file is the input or a data file it names (anywhere).
    if (!result && (error.contains('\n') || error.indexOf(": ") < 1 || error.endsWith(": "))) {
        std::fprintf(stderr, "not one line naming a file and a problem: '%s'\n", qPrintable(error));
        std::abort();
    }
    if (auto* field = kx_type_cast<VxRegScalarField3>(result.get())) {
        double lo, hi;
        field->getRange(lo, hi); // touches every value
        if (field->getDims().count() <= 0) std::abort();
    }
    std::remove(path.c_str());
    return 0;
}
