-- The catalogue: one row per offered update. An offer applies to one product,
-- to one brand when it names one, and to the installed versions between
-- from_version and to_version (either end open when absent).
CREATE TABLE offers (
    update_id    TEXT PRIMARY KEY,
    product_id   TEXT NOT NULL,
    brand        TEXT,
    from_version TEXT,
    to_version   TEXT,
    version_to   TEXT NOT NULL,
    parameters   TEXT,
    name         TEXT NOT NULL,
    hash         TEXT NOT NULL,
    size         BIGINT NOT NULL,
    archive_path TEXT NOT NULL,
    file_name    TEXT NOT NULL,
    published_at TEXT NOT NULL
);
CREATE INDEX offers_by_product ON offers (product_id);
