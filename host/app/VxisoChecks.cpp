#include "VxisoChecks.h"

#include "VxHostSession.h"
#include "VxInputFiles.h"

#include <kx/KxException.h>
#include <vx/VxApplication.h>
#include <vx/VxMessage.h>

#include <QFileInfo>
#include <QStringList>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>

#include <sys/stat.h>
#include <unistd.h>

namespace {

std::string triple(const double* v)
{
    char text[80];
    std::snprintf(text, sizeof text, "%.10g %.10g %.10g", v[0], v[1], v[2]);
    return text;
}

} // namespace

void vxisoCheckWritable(const std::string& path)
{
    const std::size_t slash = path.rfind('/');
    const std::string dir = slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
    struct stat st;
    if (::stat(dir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode))
        throw KxException(QString("cannot write %1: no directory %2")
                              .arg(QString::fromStdString(path), QString::fromStdString(dir)));
    if (::access(dir.c_str(), W_OK) != 0)
        throw KxException(
            QString("cannot write %1: %2").arg(QString::fromStdString(path), std::strerror(errno)));
    if (::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode))
        throw KxException(QString("cannot write %1: it is a directory").arg(QString::fromStdString(path)));
}

void vxisoRefuseOverwritingInputs(const VxisoOptions& o,
                                  const std::vector<std::pair<const char*, const std::string*>>& outputs)
{
    QStringList inputs;
    const std::string& input = o.volumeFile.empty() ? o.rawFile : o.volumeFile;
    if (!input.empty()) inputs << vxInputFiles(QString::fromStdString(input));
    if (!o.maskFile.empty()) inputs << vxInputFiles(QString::fromStdString(o.maskFile));
    for (std::size_t i = 0; i < outputs.size(); ++i) {
        const auto& [option, output] = outputs[i];
        if (output->empty()) continue;
        for (const QString& in : inputs)
            if (vxSameFile(QString::fromStdString(*output), in))
                throw VxisoUsageError{std::string(option) + " " + *output + " would replace " +
                                      in.toStdString() + ", which this run reads; choose another name"};
        for (std::size_t j = 0; j < i; ++j)
            if (!outputs[j].second->empty() &&
                vxSameFile(QString::fromStdString(*output), QString::fromStdString(*outputs[j].second)))
                throw VxisoUsageError{std::string(option) + " " + *output + " and " + outputs[j].first + " " +
                                      *outputs[j].second + " are the same file; choose another name"};
    }
}

// The picture's camera takes its directions in single precision: each must keep a length there, and
// up must lie across the view. Checked before the long work rather than when the picture is drawn.
void vxisoCheckPicture(const VxisoOptions& o)
{
    if (!o.picture.empty() && QFileInfo(QString::fromStdString(o.picture)).suffix().toLower() != "png")
        throw VxisoUsageError{"--png writes PNG pictures: give a file name ending in .png, not '" +
                              o.picture + "'"};
    auto length = [](const double* v) {
        const double x = float(v[0]), y = float(v[1]), z = float(v[2]);
        return std::sqrt(x * x + y * y + z * z);
    };
    auto check = [](const char* option, const double* v, double l) {
        if (!(l > 0) || !std::isfinite(l))
            throw VxisoUsageError{
                std::string(option) + " " + triple(v) +
                " is not a direction: give three numbers, not all 0 (nor too large for floats)"};
    };
    const double lv = length(o.view), lu = length(o.up);
    check("--view", o.view, lv);
    check("--up", o.up, lu);
    const double cosine = (o.view[0] * o.up[0] + o.view[1] * o.up[1] + o.view[2] * o.up[2]) / (lv * lu);
    if (std::fabs(cosine) > 0.999)
        throw VxisoUsageError{"--up " + triple(o.up) + " runs along --view " + triple(o.view) +
                              ": give an up direction across the view"};
}

// The host keeps the module's errors and warnings to its record (the subcommands take the console
// away); warnings are passed on in the command's voice.
void vxisoPassOnModuleWarnings()
{
    for (const QString& line : VxApplication::instance()->message()->lines())
        if (line.startsWith("Warning: "))
            std::fprintf(stderr, "vxiso: warning: %s\n", qPrintable(line.mid(9).simplified()));
}

QString vxisoNumber(double v)
{
    return QString::number(v, 'g', 17);
}
