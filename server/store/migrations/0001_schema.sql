-- Types: keys and times are BIGINT (times in milliseconds UTC), flags SMALLINT 0/1, digests CHAR(64)
-- in lower-case hex. A column "…_key" holds the folded form of the one it is named after.

CREATE TABLE meta (
    name TEXT NOT NULL PRIMARY KEY,
    value TEXT NOT NULL
);

CREATE TABLE counter (
    name TEXT NOT NULL PRIMARY KEY,
    next BIGINT NOT NULL
);

CREATE TABLE users (
    id BIGINT NOT NULL PRIMARY KEY,
    email TEXT NOT NULL UNIQUE,
    name TEXT NOT NULL,
    password TEXT NOT NULL,
    disabled SMALLINT NOT NULL DEFAULT 0,
    product_version INTEGER NOT NULL DEFAULT 0,
    created BIGINT NOT NULL,
    last_login BIGINT,
    deleted_at BIGINT
);

CREATE TABLE login_failure (
    id BIGINT NOT NULL PRIMARY KEY,
    email TEXT NOT NULL,
    address TEXT NOT NULL,
    at BIGINT NOT NULL,
    judged SMALLINT NOT NULL DEFAULT 0
);
CREATE INDEX login_failure_email ON login_failure (email, at);
CREATE INDEX login_failure_address ON login_failure (address, at);

CREATE TABLE session (
    id BIGINT NOT NULL PRIMARY KEY,
    token CHAR(64) NOT NULL UNIQUE,
    user_id BIGINT NOT NULL REFERENCES users (id),
    device TEXT NOT NULL,
    address TEXT NOT NULL,
    app_version TEXT NOT NULL,
    product TEXT NOT NULL,
    created BIGINT NOT NULL,
    last_seen BIGINT NOT NULL,
    ends BIGINT NOT NULL,
    worked INTEGER NOT NULL DEFAULT 0
);
CREATE INDEX session_user ON session (user_id);
CREATE INDEX session_seen ON session (last_seen);

CREATE TABLE role (
    id BIGINT NOT NULL PRIMARY KEY,
    name TEXT NOT NULL,
    name_key TEXT NOT NULL UNIQUE,
    position INTEGER NOT NULL,
    all_project_read_write SMALLINT NOT NULL DEFAULT 0,
    all_project_review SMALLINT NOT NULL DEFAULT 0,
    export_project SMALLINT NOT NULL DEFAULT 0,
    export_unit_rate SMALLINT NOT NULL DEFAULT 0,
    upload_report_setting SMALLINT NOT NULL DEFAULT 0,
    read_only_rate_library SMALLINT NOT NULL DEFAULT 0,
    read_write_rate_library SMALLINT NOT NULL DEFAULT 0,
    read_write_bq_library SMALLINT NOT NULL DEFAULT 0,
    administrator SMALLINT NOT NULL DEFAULT 0
);

CREATE TABLE role_user (
    role_id BIGINT NOT NULL REFERENCES role (id) ON DELETE CASCADE,
    user_id BIGINT NOT NULL REFERENCES users (id),
    PRIMARY KEY (role_id, user_id)
);
CREATE INDEX role_user_user ON role_user (user_id);

CREATE TABLE blob (
    sha256 CHAR(64) NOT NULL PRIMARY KEY,
    size BIGINT NOT NULL,
    created BIGINT NOT NULL
);

CREATE TABLE project (
    id BIGINT NOT NULL PRIMARY KEY,
    guid TEXT NOT NULL,
    guid_key TEXT NOT NULL UNIQUE,
    name TEXT NOT NULL,
    name_key TEXT NOT NULL,
    live_name_key TEXT UNIQUE,
    kind TEXT NOT NULL,
    creator_id BIGINT NOT NULL REFERENCES users (id),
    created BIGINT NOT NULL,
    editor_id BIGINT NOT NULL REFERENCES users (id),
    modified BIGINT NOT NULL,
    log_version INTEGER NOT NULL DEFAULT -1,
    amount TEXT NOT NULL DEFAULT '',
    state INTEGER NOT NULL DEFAULT 0,
    bid_status INTEGER NOT NULL DEFAULT 0,
    addendum_of TEXT NOT NULL DEFAULT '',
    info TEXT NOT NULL DEFAULT '{}',
    file_blob CHAR(64) REFERENCES blob (sha256),
    file_md5 TEXT NOT NULL DEFAULT '',
    chain CHAR(64) NOT NULL DEFAULT '',
    revision BIGINT NOT NULL DEFAULT 0,
    next_item BIGINT NOT NULL DEFAULT 1,
    lock_session BIGINT,
    lock_user BIGINT,
    lock_gen BIGINT NOT NULL DEFAULT 0,
    lock_since BIGINT NOT NULL DEFAULT 0,
    lock_until BIGINT NOT NULL DEFAULT 0,
    plock_session BIGINT,
    plock_user BIGINT,
    removed_at BIGINT,
    removed_by BIGINT
);
CREATE INDEX project_kind ON project (kind);
CREATE INDEX project_revision ON project (revision);
CREATE INDEX project_creator ON project (creator_id);
CREATE INDEX project_lock_session ON project (lock_session);
CREATE INDEX project_plock_session ON project (plock_session);
CREATE INDEX project_file_blob ON project (file_blob);

CREATE TABLE project_permission (
    project_id BIGINT NOT NULL REFERENCES project (id),
    user_id BIGINT NOT NULL REFERENCES users (id),
    rw INTEGER NOT NULL,
    money INTEGER NOT NULL,
    addendum INTEGER NOT NULL,
    report INTEGER NOT NULL,
    PRIMARY KEY (project_id, user_id)
);
CREATE INDEX project_permission_user ON project_permission (user_id, project_id);

CREATE TABLE project_group (
    id BIGINT NOT NULL PRIMARY KEY,
    name TEXT NOT NULL,
    name_key TEXT NOT NULL UNIQUE,
    kind TEXT NOT NULL,
    creator_id BIGINT NOT NULL REFERENCES users (id)
);

CREATE TABLE project_open (
    project_id BIGINT NOT NULL REFERENCES project (id),
    user_id BIGINT NOT NULL REFERENCES users (id),
    session_id BIGINT NOT NULL,
    since BIGINT NOT NULL,
    PRIMARY KEY (project_id, user_id)
);
CREATE INDEX project_open_session ON project_open (session_id);

CREATE TABLE project_log (
    project_id BIGINT NOT NULL REFERENCES project (id),
    version INTEGER NOT NULL,
    blob CHAR(64) NOT NULL REFERENCES blob (sha256),
    md5 TEXT NOT NULL,
    size BIGINT NOT NULL,
    user_id BIGINT NOT NULL REFERENCES users (id),
    session_id BIGINT NOT NULL,
    lock_gen BIGINT NOT NULL,
    device TEXT NOT NULL,
    at BIGINT NOT NULL,
    amount TEXT NOT NULL,
    file_blob CHAR(64) REFERENCES blob (sha256),
    file_digest CHAR(64) NOT NULL,
    chain CHAR(64) NOT NULL,
    PRIMARY KEY (project_id, version)
);
CREATE INDEX project_log_blob ON project_log (blob);
CREATE INDEX project_log_file_blob ON project_log (file_blob);

CREATE TABLE barrier (
    project_id BIGINT NOT NULL REFERENCES project (id),
    version INTEGER NOT NULL,
    before INTEGER NOT NULL,
    epoch TEXT NOT NULL,
    at BIGINT NOT NULL,
    PRIMARY KEY (project_id, version)
);

CREATE TABLE stage (
    project_id BIGINT NOT NULL REFERENCES project (id),
    part TEXT NOT NULL,
    generation BIGINT NOT NULL,
    session_id BIGINT NOT NULL,
    blob CHAR(64) NOT NULL REFERENCES blob (sha256),
    md5 TEXT NOT NULL,
    size BIGINT NOT NULL,
    at BIGINT NOT NULL,
    PRIMARY KEY (project_id, part)
);
CREATE INDEX stage_session ON stage (session_id);
CREATE INDEX stage_blob ON stage (blob);

-- The log locks of saves that are under way. One whose save is published, and under which nothing was
-- uploaded since, only waits for its release, and that may have been lost.
CREATE VIEW log_lock_at_work AS
SELECT p.id, p.lock_session, p.lock_until FROM project p
WHERE p.lock_session IS NOT NULL
AND (NOT EXISTS (SELECT 1 FROM project_log l WHERE l.project_id = p.id
    AND l.version = p.log_version AND l.session_id = p.lock_session AND l.lock_gen = p.lock_gen)
    OR EXISTS (SELECT 1 FROM stage g WHERE g.project_id = p.id AND g.generation = p.lock_gen));

CREATE TABLE file (
    owner_kind TEXT NOT NULL,
    owner_id BIGINT NOT NULL,
    name_key TEXT NOT NULL,
    name TEXT NOT NULL,
    blob CHAR(64) NOT NULL REFERENCES blob (sha256),
    md5 TEXT NOT NULL,
    size BIGINT NOT NULL,
    at BIGINT NOT NULL,
    user_id BIGINT NOT NULL REFERENCES users (id),
    PRIMARY KEY (owner_kind, owner_id, name_key)
);
CREATE INDEX file_blob ON file (blob);

CREATE TABLE item (
    project_id BIGINT NOT NULL REFERENCES project (id),
    module INTEGER NOT NULL,
    item_id BIGINT NOT NULL,
    user_id BIGINT NOT NULL REFERENCES users (id),
    state INTEGER NOT NULL,
    at BIGINT NOT NULL,
    seq BIGINT NOT NULL,
    PRIMARY KEY (project_id, module, item_id)
);
-- An item is in one of the two: what changes hands ten thousand rows at a time keeps few indexes.
CREATE INDEX item_held ON item (project_id, module, item_id) WHERE state = 1;
CREATE INDEX item_freed ON item (project_id, module, seq) WHERE state = 0;

-- Who ever held an item of a project, so that nobody's are looked for among all the others'.
CREATE TABLE item_holder (
    project_id BIGINT NOT NULL REFERENCES project (id),
    user_id BIGINT NOT NULL REFERENCES users (id),
    PRIMARY KEY (project_id, user_id)
);
CREATE INDEX item_holder_user ON item_holder (user_id, project_id);

CREATE TABLE item_block (
    project_id BIGINT NOT NULL REFERENCES project (id),
    min_id BIGINT NOT NULL,
    max_id BIGINT NOT NULL,
    user_id BIGINT NOT NULL REFERENCES users (id),
    device TEXT NOT NULL,
    session_id BIGINT NOT NULL,
    at BIGINT NOT NULL,
    PRIMARY KEY (project_id, min_id)
);
CREATE INDEX item_block_user ON item_block (project_id, user_id, device, min_id);

CREATE TABLE global_lock (
    type INTEGER NOT NULL PRIMARY KEY,
    user_id BIGINT NOT NULL REFERENCES users (id),
    name TEXT NOT NULL,
    email TEXT NOT NULL,
    session_id BIGINT,
    at BIGINT NOT NULL,
    until BIGINT NOT NULL
);
CREATE INDEX global_lock_session ON global_lock (session_id);

CREATE TABLE template (
    id TEXT NOT NULL PRIMARY KEY,
    name TEXT NOT NULL,
    name_key TEXT NOT NULL,
    live_name_key TEXT UNIQUE,
    type INTEGER NOT NULL,
    author TEXT NOT NULL,
    author_email TEXT NOT NULL,
    author_id BIGINT NOT NULL REFERENCES users (id),
    project_version TEXT NOT NULL,
    version INTEGER NOT NULL,
    created BIGINT NOT NULL,
    modified BIGINT NOT NULL,
    deleted_at BIGINT
);

CREATE TABLE template_version (
    template_id TEXT NOT NULL REFERENCES template (id),
    version INTEGER NOT NULL,
    blob CHAR(64) NOT NULL REFERENCES blob (sha256),
    md5 TEXT NOT NULL,
    at BIGINT NOT NULL,
    PRIMARY KEY (template_id, version)
);
CREATE INDEX template_version_blob ON template_version (blob);

CREATE TABLE shared_table (
    name TEXT NOT NULL PRIMARY KEY,
    write_right TEXT NOT NULL,
    revision INTEGER NOT NULL,
    blob CHAR(64) REFERENCES blob (sha256),
    user_id BIGINT REFERENCES users (id),
    at BIGINT NOT NULL
);
CREATE INDEX shared_table_blob ON shared_table (blob);

CREATE TABLE shared_table_revision (
    name TEXT NOT NULL REFERENCES shared_table (name),
    revision INTEGER NOT NULL,
    blob CHAR(64) NOT NULL REFERENCES blob (sha256),
    user_id BIGINT REFERENCES users (id),
    at BIGINT NOT NULL,
    PRIMARY KEY (name, revision)
);
CREATE INDEX shared_table_revision_blob ON shared_table_revision (blob);

CREATE TABLE working_time (
    user_id BIGINT NOT NULL REFERENCES users (id),
    day TEXT NOT NULL,
    minutes INTEGER NOT NULL,
    PRIMARY KEY (user_id, day)
);

CREATE TABLE resource_package (
    version TEXT NOT NULL PRIMARY KEY,
    blob CHAR(64) NOT NULL REFERENCES blob (sha256),
    at BIGINT NOT NULL,
    current SMALLINT NOT NULL
);

CREATE TABLE ocr_job (
    id TEXT NOT NULL PRIMARY KEY,
    user_id BIGINT NOT NULL REFERENCES users (id),
    blob CHAR(64) NOT NULL REFERENCES blob (sha256),
    name TEXT NOT NULL,
    languages TEXT NOT NULL,
    export INTEGER NOT NULL,
    state INTEGER NOT NULL,
    tries INTEGER NOT NULL,
    created BIGINT NOT NULL,
    ended BIGINT,
    worker BIGINT
);
CREATE INDEX ocr_job_state ON ocr_job (state, created);
CREATE INDEX ocr_job_user ON ocr_job (user_id);

CREATE TABLE ocr_page (
    job_id TEXT NOT NULL REFERENCES ocr_job (id),
    page INTEGER NOT NULL,
    state INTEGER NOT NULL,
    text_blob CHAR(64) REFERENCES blob (sha256),
    pdf_blob CHAR(64) REFERENCES blob (sha256),
    code INTEGER NOT NULL DEFAULT 0,
    message TEXT NOT NULL DEFAULT '',
    seq BIGINT NOT NULL DEFAULT 0,
    PRIMARY KEY (job_id, page)
);

-- payload is the content as it goes out; empty where it is made when the message is sent.
CREATE TABLE outbox (
    id BIGINT NOT NULL PRIMARY KEY,
    topic_key TEXT NOT NULL,
    seq BIGINT NOT NULL,
    type TEXT NOT NULL,
    command TEXT NOT NULL,
    sender TEXT NOT NULL,
    payload TEXT NOT NULL,
    project_id BIGINT,
    also_to TEXT NOT NULL DEFAULT '',
    at BIGINT NOT NULL,
    attempts INTEGER NOT NULL DEFAULT 0,
    sent_seq BIGINT,
    sent_at BIGINT,
    UNIQUE (topic_key, seq, command)
);
CREATE INDEX outbox_sent ON outbox (sent_at, id);

CREATE TABLE audit (
    process_id BIGINT NOT NULL,
    number BIGINT NOT NULL,
    at BIGINT NOT NULL,
    user_id BIGINT,
    session_id BIGINT,
    address TEXT NOT NULL,
    service TEXT NOT NULL,
    project_id BIGINT,
    object TEXT NOT NULL,
    status INTEGER NOT NULL,
    detail TEXT NOT NULL,
    chain CHAR(64) NOT NULL,
    PRIMARY KEY (process_id, number)
);
CREATE INDEX audit_project ON audit (project_id, at);
CREATE INDEX audit_user ON audit (user_id, at);

CREATE TABLE process (
    id BIGINT NOT NULL PRIMARY KEY,
    host TEXT NOT NULL,
    started BIGINT NOT NULL,
    seen BIGINT NOT NULL
);
