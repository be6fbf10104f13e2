-- Every request the service received, answered or refused. `fields` holds the
-- request record's present fields as one JSON object, in wire order; `fault`
-- says why a request was refused and is absent for an answered one.
CREATE TABLE journal (
    id             INTEGER PRIMARY KEY,
    received_at    TEXT NOT NULL,
    operation      TEXT NOT NULL,
    client_address TEXT NOT NULL,
    fields         TEXT NOT NULL,
    fault          TEXT
);
