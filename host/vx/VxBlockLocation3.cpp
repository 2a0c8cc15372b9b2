#include <vx/VxBlockLocation3.h>
#include <vx/VxBlockStructuredScalarField3.h>

#include <algorithm>

VxBlockLocation3::VxBlockLocation3(const VxBlockStructuredScalarField3& field)
    : m_field(field), m_blocks(std::size_t(field.getNumBlocks()))
{
}

VxBlockLocation3::~VxBlockLocation3() = default;

VxRegLocation3* VxBlockLocation3::block(int b)
{
    auto& l = m_blocks[std::size_t(b)];
    if (!l) l = std::make_unique<VxRegLocation3>(*m_field.getField(b));
    return l.get();
}

bool VxBlockLocation3::search(const SbVec3f& p, int skip)
{
    const KxVec3f q(p[0], p[1], p[2]);
    for (int b = 0; b < int(m_blocks.size()); ++b) {
        if (b == skip) continue;
        const KxBox3f box = m_field.getField(b)->getBoundingBox();
        const KxVec3f s = box.getSize();
        if (!box.contains(q, float(TOLERANCE) * std::max({s.x, s.y, s.z}))) continue;
        if (block(b)->set(p)) {
            m_block = b;
            return m_found = true;
        }
    }
    return m_found = false;
}

bool VxBlockLocation3::set(const SbVec3f& p)
{
    if (m_found && block(m_block)->set(p)) return true;
    return search(p, m_found ? m_block : -1);
}

bool VxBlockLocation3::move(const SbVec3f& p)
{
    if (m_found && block(m_block)->move(p)) return true;
    return search(p, m_found ? m_block : -1);
}

bool VxBlockLocation3::eval(float& value) const
{
    return m_found && m_blocks[std::size_t(m_block)]->eval(value);
}
