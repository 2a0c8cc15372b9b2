#include <io/VxIsolineSvgWriter.h>

#include <io/VxChunkWriter.h>
#include <kx/KxTempFile.h>
#include <vx/VxLineSet.h>

#include <QBuffer>
#include <QByteArray>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>

namespace {

// The longer side of the slice is this many pixels; the legend takes a column beside it.
constexpr double kDrawing = 720, kMargin = 24, kLegend = 150;

QByteArray number(double v)
{
    return QByteArray::number(v, 'f', 2);
}

QByteArray hexColor(uint32_t rgba)
{
    char text[8];
    std::snprintf(text, sizeof text, "#%02x%02x%02x", unsigned(rgba >> 24), unsigned(rgba >> 16 & 0xff),
                  unsigned(rgba >> 8 & 0xff));
    return text;
}

QByteArray escaped(const QString& text)
{
    return text.toHtmlEscaped().toUtf8();
}

// The picture as an embedded PNG, turned as the drawing shows the slice: its first row at the
// bottom, its first column on the left when seen from the front, else on the right.
QByteArray embedded(const QImage& picture, bool front)
{
    QByteArray png;
    QBuffer buffer(&png);
    buffer.open(QIODevice::WriteOnly);
    picture.mirrored(!front, true).save(&buffer, "PNG");
    return "data:image/png;base64," + png.toBase64();
}

} // namespace

bool VxIsolineSvg::write(const VxLineSet& lines, const QString& path, QString* error) const
{
    const float width = uSide.length(), height = vSide.length();
    if (!(width > 0) || !(height > 0)) {
        if (error) *error = QString("cannot write %1: the slice has no extent").arg(path);
        return false;
    }
    const SbVec3f u = uSide / width, v = vSide / height;
    const double scale = kDrawing / std::max(width, height);
    const double w = width * scale, h = height * scale;
    // u runs to the left on the page unless seen from the front.
    const double side = front ? 1 : -1;
    auto x = [&](const float* p) {
        const double along = (SbVec3f(p[0], p[1], p[2]) - corner).dot(u) * scale;
        return kMargin + (front ? along : w - along);
    };
    auto y = [&](const float* p) {
        return kMargin + h - (SbVec3f(p[0], p[1], p[2]) - corner).dot(v) * scale;
    };

    QByteArray svg;
    const double totalWidth = w + 2 * kMargin + kLegend;
    const double totalHeight = std::max(h, 24.0 * double(values.size()) + 40) + 2 * kMargin;
    svg += "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<svg xmlns=\"http://www.w3.org/2000/svg\" "
           "width=\"" +
           number(totalWidth) + "\" height=\"" + number(totalHeight) + "\" viewBox=\"0 0 " +
           number(totalWidth) + ' ' + number(totalHeight) + "\">\n";
    svg += "<title>" + escaped(title) + "</title>\n";
    svg += "<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n";
    if (!picture.isNull()) {
        // Texel centres sit on the samples, so the picture reaches half a texel beyond the
        // rectangle on each side; the clip keeps the rectangle's edge.
        const double tu = picture.width() > 1 ? w / (picture.width() - 1) : w;
        const double tv = picture.height() > 1 ? h / (picture.height() - 1) : h;
        svg += "<clipPath id=\"slice\"><rect x=\"" + number(kMargin) + "\" y=\"" + number(kMargin) +
               "\" width=\"" + number(w) + "\" height=\"" + number(h) + "\"/></clipPath>\n";
        svg += "<image clip-path=\"url(#slice)\" x=\"" + number(kMargin - tu / 2) + "\" y=\"" +
               number(kMargin - tv / 2) + "\" width=\"" + number(w + tu) + "\" height=\"" + number(h + tv) +
               "\" preserveAspectRatio=\"none\" href=\"" + embedded(picture, front) + "\"/>\n";
    }
    svg += "<rect x=\"" + number(kMargin) + "\" y=\"" + number(kMargin) + "\" width=\"" + number(w) +
           "\" height=\"" + number(h) + "\" fill=\"none\" stroke=\"#444\" stroke-width=\"1\"/>\n";

    // One group a value, in the order of the values; lines of a value not listed are drawn black.
    std::map<float, std::vector<int>> byValue;
    for (int l = 0; l < lines.getNumLines(); ++l)
        byValue[lines.getNumDataValues() ? lines.getLineData(0)[l] : 0.f].push_back(l);
    const float* points = lines.getPoints();
    for (const auto& [value, members] : byValue) {
        const auto at = std::find(values.begin(), values.end(), value);
        const std::size_t k = std::size_t(at - values.begin());
        const QByteArray color = k < colors.size() ? hexColor(colors[k]) : QByteArray("#000000");
        svg += "<g data-value=\"" + QByteArray::number(double(value), 'g', 9) + "\" stroke=\"" + color +
               "\" fill=\"none\" stroke-width=\"1.5\" stroke-linejoin=\"round\">\n";
        for (int l : members) {
            svg += "<polyline points=\"";
            bool first = true;
            for (int i : lines.getLine(l)) {
                const float* p = points + 3 * i;
                svg += (first ? "" : " ") + number(x(p)) + ',' + number(y(p));
                first = false;
            }
            svg += "\"/>\n";
        }
        svg += "</g>\n";
    }

    // The labels over the lines.
    // A dark halo under each label keeps light text readable over light parts of the slice.
    if (!labels.empty())
        svg += "<g font-family=\"DejaVu Sans, sans-serif\" text-anchor=\"middle\" stroke=\"#000\" "
               "stroke-opacity=\"0.6\" stroke-width=\"2\" paint-order=\"stroke\">\n";
    for (const Label& label : labels) {
        const float* a = &label.anchor[0];
        const double lx = x(a), ly = y(a);
        // The baseline as drawn: u runs left and v up on the page.
        const double bx = side * label.baseline.dot(u), by = -label.baseline.dot(v);
        const double angle = bx == 0 && by == 0 ? 0 : std::atan2(by, bx) * 180 / M_PI;
        svg +=
            "<text x=\"" + number(lx) + "\" y=\"" + number(ly) + "\" font-size=\"" +
            number(label.height * scale) + "\" fill=\"" + hexColor(label.color) + "\"" +
            (angle != 0 ? " transform=\"rotate(" + number(angle) + ' ' + number(lx) + ' ' + number(ly) + ")\""
                        : "") +
            ">" + escaped(label.text) + "</text>\n";
    }
    if (!labels.empty()) svg += "</g>\n";

    // The legend: the highest value on top, as on a colour bar.
    const double lx = w + 2 * kMargin;
    svg += "<g font-family=\"DejaVu Sans, sans-serif\" font-size=\"13\">\n<text x=\"" + number(lx) +
           "\" y=\"" + number(kMargin + 12) + "\">iso values</text>\n";
    std::vector<std::size_t> order(values.size());
    for (std::size_t i = 0; i < order.size(); ++i) order[i] = i;
    std::stable_sort(order.begin(), order.end(),
                     [&](std::size_t a, std::size_t b) { return values[a] > values[b]; });
    for (std::size_t row = 0; row < order.size(); ++row) {
        const std::size_t k = order[row];
        const double ly = kMargin + 36 + 24 * double(row);
        const std::vector<uint32_t>& swatches = legendColors.empty() ? colors : legendColors;
        svg += "<line x1=\"" + number(lx) + "\" y1=\"" + number(ly - 4) + "\" x2=\"" + number(lx + 28) +
               "\" y2=\"" + number(ly - 4) + "\" stroke=\"" +
               (k < swatches.size() ? hexColor(swatches[k]) : "#000000") +
               "\" stroke-width=\"3\"/>\n<text x=\"" + number(lx + 36) + "\" y=\"" + number(ly) + "\">" +
               QByteArray::number(double(values[k]), 'g', 6) + "</text>\n";
    }
    svg += "</g>\n</svg>\n";

    KxTempFile file(path);
    if (!file.open(error)) return false;
    VxChunkWriter out(file.fd());
    out.put(svg);
    if (!out.flush()) return file.fail(error, out.error());
    return file.commit(error);
}
