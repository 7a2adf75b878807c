-- Vorlan's statistics back-end: the two tables that the program posts anonymous reports into.
-- Run it once on the deployment's Supabase project (SQL editor, or psql with the project's
-- connection string). It is safe to run again: every step checks what is already there.
--
-- The anon key is public by design, so these tables are safe only through the database's own
-- rules: Row Level Security on, every privilege taken from the client roles, then insert of
-- the `payload` column alone given back to `anon`, bounded by a policy. Nobody using the anon
-- key can read, change or delete a report. The program posts with "Prefer: return=minimal",
-- so it never needs to read a row back.

begin;

-- Supabase has these roles already; a plain PostgreSQL server gets them here, so that the same
-- file applies to both.
do $$
begin
  if not exists (select 1 from pg_roles where rolname = 'anon') then
    create role anon nologin noinherit;
  end if;
  if not exists (select 1 from pg_roles where rolname = 'authenticated') then
    create role authenticated nologin noinherit;
  end if;
end
$$;

grant usage on schema public to anon;

-- One row per finished scan: the report exactly as the client built it.
create table if not exists public.scan_reports (
  id          bigint generated always as identity primary key,
  received_at timestamptz not null default now(),
  payload     jsonb not null,
  constraint scan_reports_payload_is_object check (jsonb_typeof(payload) = 'object'),
  -- A report of some thousand findings stays far below this; anything larger is not ours.
  constraint scan_reports_payload_size check (octet_length(payload::text) <= 1048576)
);

-- One row per cleanup event: deleted, purged_immediate, unchecked, expired, purged, restored.
create table if not exists public.cleanup_events (
  id          bigint generated always as identity primary key,
  received_at timestamptz not null default now(),
  payload     jsonb not null,
  constraint cleanup_events_payload_is_object check (jsonb_typeof(payload) = 'object'),
  constraint cleanup_events_payload_size check (octet_length(payload::text) <= 262144)
);

alter table public.scan_reports enable row level security;
alter table public.cleanup_events enable row level security;

-- Supabase grants everything on new tables to its client roles by default: take it all back,
-- then give `anon` the insert of `payload` alone (`id` and `received_at` are the server's).
revoke all on table public.scan_reports, public.cleanup_events from public, anon, authenticated;
grant insert (payload) on table public.scan_reports, public.cleanup_events to anon;

drop policy if exists scan_reports_anon_insert on public.scan_reports;
create policy scan_reports_anon_insert on public.scan_reports
  for insert to anon
  with check (jsonb_typeof(payload) = 'object' and octet_length(payload::text) <= 1048576);

drop policy if exists cleanup_events_anon_insert on public.cleanup_events;
create policy cleanup_events_anon_insert on public.cleanup_events
  for insert to anon
  with check (jsonb_typeof(payload) = 'object' and octet_length(payload::text) <= 262144);

-- No select, update or delete policy exists, and no such privilege is granted: with Row Level
-- Security on, that denies them twice over.

commit;
