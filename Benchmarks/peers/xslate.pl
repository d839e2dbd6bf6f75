#!/usr/bin/env perl
# Text::Xslate: xslate.pl DATA TEMPLATES [letters OUTPUT]. Answers the commands that Driver.h describes.
use strict;
use warnings;

use File::Temp ();
use JSON::XS ();
use List::Util qw(max min);
use Text::Xslate;
use Time::HiRes ();

my ($data, $templates, $letters, $output) = @ARGV;
my $xslate = Text::Xslate->new(
    path      => [$templates],
    cache     => 2,
    cache_dir => File::Temp::tempdir(CLEANUP => 1),
    type      => 'text',
    function  => {
        least    => sub { min(map { $_->{price}{amount} } @{ $_[0] }) },
        greatest => sub { max(map { $_->{price}{amount} } @{ $_[0] }) },
        reduced  => sub { $_[0] =~ /^(SALE|LAST)-\d+$/ },
        price    => sub { "$_[0] $_[1]" },
    },
);

sub read_file {
    my ($path) = @_;
    open my $file, '<:raw', $path or die "cannot read $path: $!\n";
    local $/;
    return scalar <$file>;
}

sub write_file {
    my ($path, $text) = @_;
    open my $file, '>:raw', $path or die "cannot write $path: $!\n";
    print {$file} $text;
    close $file or die "cannot write $path: $!\n";
    return;
}

sub data_of {
    my ($name) = @_;
    return JSON::XS::decode_json(read_file("$data/$name.json"));
}

# What does a workload once.
sub prepare {
    my ($name) = @_;
    if ($name =~ /^compile-/) {
        my $text = read_file("$data/xslate-$name.txt");
        return sub { $xslate->load_string($text) };
    }
    my $variables = data_of($name);
    my $page = ($name =~ s/-.*//r) . '.tx';
    $xslate->load_file($page);
    return sub { $xslate->render($page, $variables) };
}

my ($prepared, $run) = ('');

sub answer {
    my ($command, $name, $argument) = @_;
    if ($name ne $prepared) {
        ($run, $prepared) = (undef, '');
        ($run, $prepared) = (prepare($name), $name);
    }
    if ($command eq 'run') {
        my ($wall, $processor) = (Time::HiRes::time(), Time::HiRes::clock());
        $run->() for 1 .. $argument;
        return join ' ', (Time::HiRes::time() - $wall) / $argument, (Time::HiRes::clock() - $processor) / $argument;
    }
    if ($command eq 'output') {
        write_file($argument, $run->());
        return 'done';
    }
    die "Perl does not tell what a compiled template occupies\n";
}

if (defined $output) {
    write_file($output, $xslate->render('letters.tx', data_of('letters')));
    exit;
}
$| = 1;
while (my $line = <STDIN>) {
    my $answer = eval { answer(split ' ', $line) } // "error $@";
    $answer =~ s/\s+/ /g;
    print "$answer\n";
}
