#include "VxMpiRanks.h"

#include <cstdint>

VxMpiRanks::VxMpiRanks(MPI_Comm comm) : m_comm(comm)
{
    MPI_Comm_rank(comm, &m_rank);
    MPI_Comm_size(comm, &m_size);
}

void VxMpiRanks::agree(const std::string& error) const
{
    int mine = error.empty() ? m_size : m_rank, first = m_size;
    MPI_Allreduce(&mine, &first, 1, MPI_INT, MPI_MIN, m_comm);
    if (first == m_size) return;
    int length = m_rank == first ? int(error.size()) : 0;
    MPI_Bcast(&length, 1, MPI_INT, first, m_comm);
    std::string text = m_rank == first ? error : std::string(std::size_t(length), ' ');
    MPI_Bcast(text.data(), length, MPI_CHAR, first, m_comm);
    throw Failure{first, text};
}

uint64_t VxMpiRanks::before(uint64_t mine) const
{
    uint64_t sum = 0;
    MPI_Exscan(&mine, &sum, 1, MPI_UINT64_T, MPI_SUM, m_comm);
    return m_rank == 0 ? 0 : sum; // the exclusive scan leaves rank 0's result undefined
}

uint64_t VxMpiRanks::total(uint64_t mine) const
{
    uint64_t sum = 0;
    MPI_Allreduce(&mine, &sum, 1, MPI_UINT64_T, MPI_SUM, m_comm);
    return sum;
}

std::string VxMpiRanks::fromRankZero(const std::string& text) const
{
    int length = m_rank == 0 ? int(text.size()) : 0;
    MPI_Bcast(&length, 1, MPI_INT, 0, m_comm);
    std::string out = m_rank == 0 ? text : std::string(std::size_t(length), ' ');
    MPI_Bcast(out.data(), length, MPI_CHAR, 0, m_comm);
    return out;
}
