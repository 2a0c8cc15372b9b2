#pragma once
#include <kx/KxDArray.h>
#include <vx/VxSpatialData.h>

#include <vector>

// Polylines in space: points (float triples) and lines, each a list of point indices; optionally
// data values per point and per line (the iso value of an isoline, say).
class VxLineSet : public VxSpatialData
{
    KX_HEADER(VxLineSet)

public:
    // numPoints points at the origin and numLines empty lines; numDataValues values per point and
    // per line, all 0.
    VxLineSet(int numPoints = 0, int numLines = 0, int numDataValues = 0);

    int getNumPoints() const { return int(m_points.size() / 3); }
    void setNumPoints(int n);
    const float* getPoints() const { return m_points.data(); }
    float* getPoints() { return m_points.data(); }
    void setPoint(int i, float x, float y, float z);

    int getNumLines() const { return int(m_lines.size()); }
    void setNumLines(int n);
    // Point indices of line i.
    const KxDArray<int>& getLine(int i) const { return m_lines[std::size_t(i)]; }
    KxDArray<int>& getLine(int i) { return m_lines[std::size_t(i)]; }
    // Appends a line of n points; returns its index.
    int addLine(const int* indices, int n);

    int getNumDataValues() const { return m_numDataValues; }
    // Data value `which` of every point (getNumPoints() floats) or of every line.
    float* getPointData(int which) { return m_pointData[std::size_t(which)].data(); }
    const float* getPointData(int which) const { return m_pointData[std::size_t(which)].data(); }
    float* getLineData(int which) { return m_lineData[std::size_t(which)].data(); }
    const float* getLineData(int which) const { return m_lineData[std::size_t(which)].data(); }

    KxBox3f getBoundingBox() const override;

private:
    KxDArray<float> m_points;
    std::vector<KxDArray<int>> m_lines;
    int m_numDataValues;
    std::vector<KxDArray<float>> m_pointData, m_lineData;
};
