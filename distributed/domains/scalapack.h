// What of ScaLAPACK and of the BLACS below it is called, by their own names.
#ifndef ZEPH_DISTRIBUTED_DOMAINS_SCALAPACK_H
#define ZEPH_DISTRIBUTED_DOMAINS_SCALAPACK_H

#include <mpi.h>

extern "C" {
int Csys2blacs_handle(MPI_Comm comm);
void Cfree_blacs_system_handle(int handle);
void Cblacs_gridinit(int* context, const char* order, int rows, int cols);
void Cblacs_gridexit(int context);
int numroc_(const int* n, const int* block, const int* place, const int* first, const int* count);
void descinit_(int* descriptor, const int* rows, const int* cols, const int* rowBlock,
               const int* colBlock, const int* firstRow, const int* firstCol, const int* context,
               const int* stride, int* info);
void pdpotrf_(const char* triangle, const int* n, double* a, const int* row, const int* col,
              const int* descriptor, int* info);
void pdpotri_(const char* triangle, const int* n, double* a, const int* row, const int* col,
              const int* descriptor, int* info);
void pdpotrs_(const char* triangle, const int* n, const int* sides, const double* a, const int* row,
              const int* col, const int* descriptor, double* b, const int* rowOfB,
              const int* colOfB, const int* descriptorOfB, int* info);
}

#endif
