# TMB's selected inverse of a matrix that compare_engine wrote, and its variances against ours.
#   Rscript tmb_subset.R FILE SECONDS
# Prints one JSON object: seconds to order and factorise, seconds of the step, largest relative
# difference of the variances.
suppressPackageStartupMessages({
  library(Matrix)
  library(TMB)
})
arguments <- commandArgs(trailingOnly = TRUE)
file <- file(arguments[1], "rb")
sizes <- readBin(file, "integer", 2)
p <- readBin(file, "integer", sizes[1] + 1)
i <- readBin(file, "integer", sizes[2])
x <- readBin(file, "double", sizes[2])
ours <- readBin(file, "double", sizes[1])
close(file)
Q <- new("dsCMatrix", i = i, p = p, x = x, Dim = c(sizes[1], sizes[1]), uplo = "L")

seconds <- function(work) {
  gc(FALSE)
  start <- Sys.time()
  work()
  as.numeric(Sys.time() - start, units = "secs")
}
factor <- step <- Inf
spent <- 0
rounds <- 0
while (rounds < 2 || (rounds < 20 && spent < as.numeric(arguments[2]))) {
  Q@factors <- list()  # R keeps factors with the matrix
  f <- seconds(function() L <<- Cholesky(Q, perm = TRUE, super = TRUE, LDL = FALSE))
  s <- seconds(function() inverse <<- .Call("tmb_invQ", L, PACKAGE = "TMB"))
  factor <- min(factor, f)
  step <- min(step, s)
  spent <- spent + f + s
  rounds <- rounds + 1
}
variances <- diag(inverse)[invPerm(L@perm + 1L)]
cat(sprintf('{"factor": %.9g, "step": %.9g, "difference": %.3g}\n', factor, step,
            max(abs(variances - ours) / ours)))
