#pragma once
#include <kx/KxException.h>

#include <mpi.h>

#include <string>

// The ranks of a run, and how they fail together: a step that may fail on some ranks alone ends
// with agree(), after which every rank knows the first failure and stops with it.
class VxMpiRanks
{
public:
    // One failure for all ranks: the message of the lowest rank that failed.
    struct Failure
    {
        int rank;
        std::string text;
    };

    explicit VxMpiRanks(MPI_Comm comm);
    MPI_Comm comm() const { return m_comm; }
    int rank() const { return m_rank; }
    int size() const { return m_size; }

    // Collective: throws Failure on every rank when error is not empty on any.
    void agree(const std::string& error) const;
    // Runs f, turning what it throws into this rank's error, then agrees.
    template <class F> void step(F f) const
    {
        std::string error;
        try {
            f();
        } catch (const std::bad_alloc& e) {
            // The foundation's allocator says how much it could not get.
            error = dynamic_cast<const KxOutOfMemory*>(&e) ? e.what() : "out of memory";
        } catch (const std::exception& e) {
            error = e.what();
            if (error.empty()) error = "failed";
        }
        agree(error);
    }

    // Rank 0's text, on every rank.
    std::string fromRankZero(const std::string& text) const;
    // Sums of the ranks below this one (exclusive scan) and of all ranks.
    uint64_t before(uint64_t mine) const;
    uint64_t total(uint64_t mine) const;

private:
    MPI_Comm m_comm;
    int m_rank = 0, m_size = 1;
};
