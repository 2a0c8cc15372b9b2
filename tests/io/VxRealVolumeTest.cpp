// The real scans of Debian's mricron-data through the volume reader: the dimensions, datatype,
// value range and placement their headers state, and on the head scan one surface vertex per cut
// grid edge.
#include "../support/TestFields.h"
#include "../support/TestFiles.h"

#include <io/VxVolumeReader.h>

#include <kx/KxHandle.h>
#include <vx/VxRegScalarField3.h>

#include <QFileInfo>

#include <sstream>

using namespace vxtest;

// Every volume loads with what numpy finds from its header.
TEST(VolumeReaderRealData, MricronVolumesMatchTheirHeaders)
{
    const std::string dir = "/usr/share/mricron/templates/";
    if (!QFileInfo::exists(QString::fromStdString(dir + "ch2.nii.gz")))
        GTEST_SKIP()
            << "mricron-data is not installed (apt-get install mricron-data); real scans not checked";
    QTemporaryDir tmp;
    const std::string script = tmp.path().toStdString() + "/facts.py";
    // The box only for an sform that is a plain positive scaling: anything else is a transform.
    spit(script, R"(import glob, gzip, struct, sys
import numpy as np
for name in sorted(glob.glob(sys.argv[1] + '*.nii.gz')):
    b = gzip.open(name).read()
    dim = struct.unpack('<8h', b[40:56])
    dt, = struct.unpack('<h', b[70:72])
    off = int(struct.unpack('<f', b[108:112])[0])
    sform, = struct.unpack('<h', b[254:256])
    s = struct.unpack('<12f', b[280:328])
    kinds = {2: 'u1', 4: '<i2', 8: '<i4', 16: '<f4', 64: '<f8', 256: 'i1', 512: '<u2', 768: '<u4'}
    v = np.frombuffer(b, dtype=kinds[dt], offset=off, count=dim[1] * dim[2] * dim[3])
    plain = sform > 0 and all(s[4 * r + c] == 0 for r in range(3) for c in range(3) if r != c) and min(s[0], s[5], s[10]) > 0
    box = [x for r in range(3) for x in (s[4 * r + 3], s[4 * r + 3] + s[5 * r] * (dim[r + 1] - 1))] if plain else []
    print(name, dim[1], dim[2], dim[3], dt, repr(float(v.min())), repr(float(v.max())), len(box), *box)
)");
    const std::string out = runPython("numpy", script + " " + dir);
    if (out.empty()) GTEST_SKIP() << "python3 with numpy is needed to check the real scans";
    std::istringstream facts(out);
    std::string name;
    int64_t nx, ny, nz;
    int datatype, boxed, files = 0;
    double lo, hi, min = 0, max = 0;
    for (; facts >> name >> nx >> ny >> nz >> datatype >> lo >> hi >> boxed; ++files) {
        auto box = std::vector<float>(std::size_t(boxed));
        for (float& x : box) facts >> x;
        QString error;
        VxVolumeInfo info;
        KxHandle<VxSpatialData> data =
            VxVolumeReader::read(QString::fromStdString(name), VxReadOptions(), &error, &info);
        auto* field = kx_type_cast<VxRegScalarField3>(data.get());
        ASSERT_TRUE(field && field->getRange(min, max)) << error.toStdString();
        EXPECT_EQ(field->getDims(), KxDim3l(nx, ny, nz)) << name;
        EXPECT_TRUE(info.nifti.datatype == datatype && min == lo && max == hi)
            << name << ": datatype " << info.nifti.datatype << ", range " << min << " " << max;
        if (boxed) expectBox(field->getBoundingBox(), box, name, 1e-4f);
        if (name.find("/ch2.nii.gz") == std::string::npos) continue;
        for (float iso : {3.f, 80.f}) {
            const TestMesh m = extract(*field, iso);
            EXPECT_EQ(std::size_t(m.numPoints()), countCutEdges(*field, iso)) << "ch2 at " << iso;
            EXPECT_GT(m.numTriangles(), 100000);
        }
    }
    EXPECT_GE(files, 10) << out;
}
