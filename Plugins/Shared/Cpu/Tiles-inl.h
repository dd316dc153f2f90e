// The loop over the tiles of a block, for all kinds of weights. Each set of instructions includes it inside its own
// namespace, as functions can be inlined only into those that are compiled for the same set.

/// The means of two rows of a block, which share each neighbour that both reach.
template<class Weights>
HWY_INLINE void filterPair(const Weights& weights, int reach, const Block& block, int y, Means (&means)[2]) {
    [[maybe_unused]] const typename Weights::Scope scope;
    for (int column = 0; column < block.width; column += Weights::kLanes) {
        typename Weights::Tile upper(weights, y + reach, column + reach);
        typename Weights::Tile lower(weights, y + 1 + reach, column + reach);
        weights.addRow(y, column, upper);
        for (int row = y + 1; row <= y + 2 * reach; ++row)
            weights.addRow(row, column, upper, lower);
        weights.addRow(y + 1 + 2 * reach, column, lower);
        upper.store(means[0], column);
        lower.store(means[1], column);
    }
}

template<class Weights>
HWY_INLINE void filterRow(const Weights& weights, int reach, const Block& block, int y, Means& means) {
    [[maybe_unused]] const typename Weights::Scope scope;
    for (int column = 0; column < block.width; column += Weights::kLanes) {
        typename Weights::Tile tile(weights, y + reach, column + reach);
        for (int row = y; row <= y + 2 * reach; ++row)
            weights.addRow(row, column, tile);
        tile.store(means, column);
    }
}

/// Filters a block from its planes, two rows at a time if `kPairsRows`. A tile is the running sums of `kLanes`
/// neighbouring pixels of one row.
///
/// @param first the mean of the first channel, where the weights filter the others alone.
template<class Weights>
void filterTiles(const Weights& weights, const FrameJobs& frame, const Block& block, float first) {
    Means means[2];
    for (Means& row : means)
        row[0].fill(first);
    int y = 0;
    if constexpr (Weights::kPairsRows)
        for (; y + 1 < block.height; y += 2) {
            filterPair(weights, frame.reach, block, y, means);
            frame.formula.store(block, y, means[0]);
            frame.formula.store(block, y + 1, means[1]);
        }
    for (; y < block.height; ++y) {
        filterRow(weights, frame.reach, block, y, means[0]);
        frame.formula.store(block, y, means[0]);
    }
}

/// Fills a block's planes and filters it: with the weights for alpha that varies, or those for one alpha all over the
/// block and its margins.
template<class Planes, class Numbers>
void filterBlock(const FrameJobs& frame, const Numbers& numbers, const Block& block, unsigned worker) {
    Planes& planes = *new (frame.pool.scratch(worker, sizeof(Planes))) Planes;
    const std::optional<float> alpha = planes.fill(frame, numbers, block);
    if (!alpha)
        return filterTiles(typename Planes::Varying(frame, numbers, planes), frame, block, 0);
    if (frame.formula.storeUniform(block, *alpha))
        return;
    planes.makeUniform(frame, numbers, block);
    filterTiles(typename Planes::Uniform(frame, numbers, planes), frame, block, *alpha);
}
